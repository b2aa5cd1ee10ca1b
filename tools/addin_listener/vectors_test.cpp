// The deliveries in samples/vectors, which zentpost.exe has made, through the program's --decode.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "tools/addin_listener/code_page.h"
#include "tools/addin_listener/program.h"
#include "tools/support/files.h"

namespace zentpost::addin_listener {
namespace {

using Json = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

std::string FromHex(std::string_view digits) {
  std::string bytes;
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    bytes += static_cast<char>(std::stoi(std::string(digits.substr(i, 2)), nullptr, 16));
  }
  return bytes;
}

std::string TextOf(const cJSON* object, const char* name) {
  const cJSON* const item = cJSON_GetObjectItemCaseSensitive(object, name);
  return cJSON_IsString(item) ? item->valuestring : "";
}

TEST(Vectors, AreDecodedOrSaidToBeNotDecodable) {
  const support::TemporaryFolder folder;
  const std::filesystem::path capture = folder.Path() / "capture";
  for (const unsigned code_page : CodePage::kSupported) {
    const std::string number = std::to_string(code_page);
    const std::string text =
        support::ReadBytes(support::Path(VECTORS_FOLDER "/cp" + number + ".json")).value_or("");
    const Json file(cJSON_Parse(text.c_str()), cJSON_Delete);
    const cJSON* const vectors = cJSON_GetObjectItemCaseSensitive(file.get(), "vectors");
    ASSERT_GT(cJSON_GetArraySize(vectors), 30) << number;
    for (const cJSON* vector = vectors->child; vector != nullptr; vector = vector->next) {
      SCOPED_TRACE(number + " " + TextOf(vector, "name"));
      ASSERT_TRUE(support::WriteBytes(capture, FromHex(TextOf(vector, "wire"))));
      std::string out;
      std::string err;
      const int exit_code = RunProgram(
          {"--code-page", number, "--json", "--decode", support::PathText(capture)},
          [&](std::string_view part) { return out += part, true; },
          [&](std::string_view part) { return err += part, true; });
      if (cJSON_IsTrue(cJSON_GetObjectItemCaseSensitive(vector, "decodable"))) {
        const Json payload(cJSON_Parse(out.c_str()), cJSON_Delete);
        const cJSON* const members = cJSON_GetObjectItemCaseSensitive(payload.get(), "Parameters");
        EXPECT_EQ(exit_code, 0) << err;
        EXPECT_EQ(TextOf(members, "Comment"), TextOf(vector, "decoded"));
        EXPECT_EQ(TextOf(members, "Subject"), TextOf(vector, "name"));
      } else {
        EXPECT_EQ(exit_code, 1);
        EXPECT_EQ(out, "");
        EXPECT_NE(err.find("not decodable"), std::string::npos) << err;
      }
    }
  }
}

}  // namespace
}  // namespace zentpost::addin_listener
