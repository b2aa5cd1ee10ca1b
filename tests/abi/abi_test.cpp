// Holds the tool's declarations of Extended MAPI against the published ones that come with the
// compiler, for the bitness that this program is built for.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <string>

#include "tests/abi/describe.h"
#include "tests/abi/facts.h"

namespace zentpost::abi {
namespace {

std::filesystem::path declarations;  // mapiload/extended_mapi.h

using FactMap = std::map<std::string, std::string>;

void Add(FactMap& map, const Facts& facts) {
  for (const auto& [name, fact] : facts) {
    EXPECT_TRUE(map.emplace(name, fact).second) << name << " stands there twice";
  }
}
FactMap MapOf(const Facts& facts) {
  FactMap map;
  Add(map, facts);
  return map;
}

// What the published headers lack, with what the mail client's documentation says of it.
const Facts& MissingInPublishedHeaders() {
  static const Facts missing = {
      {"MDB_ONLINE", std::to_string(0x100)},
      {"PR_ATTACH_FLAGS", std::to_string(0x37140003)},
      {"PR_ATTACHMENT_LINKID", std::to_string(0x7FFA0003)},
      // 00020397-0000-0000-C000-000000000046
      {"IID_IMAPIClientShutdown", "151 3 2 0 0 0 0 0 192 0 0 0 0 0 0 70 "},
      {"IMAPIClientShutdown::QueryInterface", "slot 0 i32(const struct*,void**)"},
      {"IMAPIClientShutdown::AddRef", "slot 1 u32()"},
      {"IMAPIClientShutdown::Release", "slot 2 u32()"},
      {"IMAPIClientShutdown::QueryFastShutdown", "slot 3 i32()"},
      // 4 is NotifyProcessShutdown, which the tool does not call.
      {"IMAPIClientShutdown::DoFastShutdown", "slot 5 i32()"},
  };
  return missing;
}

// The form's token is 32 bits wide in the published headers and as wide as a pointer in the mail
// client's own: the same on x86, where nothing may differ.
FactMap FactsOnTheToken(const std::string& token) {
  const std::string pointer_wide = sizeof(void*) == 4 ? "u32" : "u64";
  return {
      {"IMAPISession::ShowForm", "slot 20 i32(" + pointer_wide + ",struct*,struct*,const struct*," +
                                     token + ",struct*,u32,u32,u32,u32,char*)"},
      {"IMAPISession::PrepareForm", "slot 21 i32(const struct*,struct*," + token + "*)"}};
}

TEST(ExtendedMapi, IsAsPublishedAndWhereThatLacksSomethingAsDocumented) {
  FactMap expected = MapOf(PublishedFacts());
  EXPECT_GT(expected.size(), 100u);
  Add(expected, MissingInPublishedHeaders());
  const FactMap ours = MapOf(OurFacts());
  for (const auto& [name, fact] : ours) {
    const auto other = expected.find(name);
    if (other == expected.end()) {
      ADD_FAILURE() << name << " is ours alone";
    } else if (!FactsOnTheToken("u32").contains(name)) {
      EXPECT_EQ(fact, other->second) << name;
    }
  }
  for (const auto& [name, fact] : expected) {
    EXPECT_TRUE(ours.contains(name)) << name << " is not ours";
  }
}

TEST(ExtendedMapi, DeliberateWidthOfTheFormsToken) {
  const FactMap ours = MapOf(OurFacts());
  const FactMap published = MapOf(PublishedFacts());
  for (const auto& [name, fact] : FactsOnTheToken(sizeof(void*) == 4 ? "u32" : "u64")) {
    EXPECT_EQ(ours.at(name), fact);
    EXPECT_EQ(published.at(name), FactsOnTheToken("u32").at(name));
  }
}

struct Methods {
  virtual std::int32_t Unmarked(std::uint32_t) { return 0; }
  virtual std::int32_t PLATFORM_STDCALL Marked(std::uint32_t) { return 0; }

 protected:
  ~Methods() = default;
};

// The comparison would otherwise say nothing about who takes the arguments off the stack.
TEST(ExtendedMapi, FactsTellCallingConventionsApart) {
  EXPECT_EQ(DescribeMethod(&Methods::Marked), "slot 1 i32(u32)");
  EXPECT_EQ(DescribeMethod(&Methods::Unmarked),
            sizeof(void*) == 4 ? "slot 0 unmarked i32(u32)" : "slot 0 i32(u32)");
}

// --- the facts are complete ---

std::string ReadText(const std::filesystem::path& path) {
  std::ifstream file(path);
  std::string text{std::istreambuf_iterator<char>(file), {}};
  return std::regex_replace(text, std::regex("//[^\n]*"), "");
}

TEST(ExtendedMapi, EveryDeclarationIsAmongTheFacts) {
  const FactMap ours = MapOf(OurFacts());
  const std::string text = ReadText(declarations);
  // A type, a constant, or a method that can be called.
  const std::regex declaration(R"(\b(?:struct|union) (\w+)[^;{]*\{|\binline constexpr \S+ (\w+) =|)"
                               R"(\bvirtual [^;{]*PLATFORM_STDCALL (\w+)\([^;{]*= 0;)");
  std::string type;
  std::size_t constants = 0;
  std::size_t methods = 0;
  for (std::sregex_iterator match(text.begin(), text.end(), declaration), end; match != end;
       ++match) {
    if ((*match)[1].matched) {
      type = (*match)[1];
      // Interfaces have methods instead of a size; the template is there with one number of tags.
      EXPECT_TRUE(type.starts_with("I") || type == "SizedSPropTagArray" || ours.contains(type))
          << type;
    } else if ((*match)[2].matched) {
      ++constants;
      EXPECT_TRUE(ours.contains((*match)[2])) << (*match)[2];
    } else {
      ++methods;
      const std::string interface_name = type == "IUnknown" ? "IMAPITable" : type;
      const std::string method = interface_name + "::" + (*match)[3].str();
      EXPECT_TRUE(ours.contains(method)) << method;
    }
  }
  // The header was found and understood.
  EXPECT_GT(constants, 50u);
  EXPECT_GT(methods, 20u);
}

}  // namespace

static int Run(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (argc != 2) {
    std::fprintf(stderr, "usage: mapi_abi_test PATH/TO/extended_mapi.h\n");
    return 2;
  }
  declarations = argv[1];
  return RUN_ALL_TESTS();
}

}  // namespace zentpost::abi

int main(int argc, char** argv) {
  return zentpost::abi::Run(argc, argv);
}
