// Our declarations of Extended MAPI against the published ones: who is compiled with the one can
// talk to whoever is compiled with the other.
#include <gtest/gtest.h>

#include "mapiload/extended_mapi.h"
#include "tests/abi/facts.h"
#include "tests/abi/shape.h"

namespace zentpost {
namespace {

TEST(MapiAbi, OurDeclarationsAgreeWithThePublishedOnes) {
  const abi::Facts published = abi::PublishedFacts();
  const abi::Facts ours = abi::OurFacts();
  ASSERT_EQ(published.size(), ours.size());
  EXPECT_GT(published.size(), 200u);
  for (const auto& [name, fact] : published) {
    ASSERT_EQ(ours.count(name), 1u) << name;
    EXPECT_EQ(ours.at(name), fact) << name;
  }
}

// Facts that are known otherwise, so that the comparison cannot be of two nothings.
TEST(MapiAbi, TheFactsAreReal) {
  const abi::Facts facts = abi::OurFacts();
  const bool is_64_bit = sizeof(void*) == 8;
  EXPECT_EQ(facts.at("sizeof(SPropValue)"), is_64_bit ? "24" : "16");
  EXPECT_EQ(facts.at("offsetof(SPropValue, Value)"), "8");
  EXPECT_EQ(facts.at("sizeof(SBinary)"), is_64_bit ? "16" : "8");
  EXPECT_EQ(facts.at("PR_SUBJECT_W"), std::to_string(0x0037001F));
  EXPECT_EQ(facts.at("IMessage::SubmitMessage"), "slot 20: integer of 4 (integer of 4)");
  EXPECT_EQ(facts.at("IMessage::SetReadFlag"), "slot 21");
  EXPECT_EQ(facts.at("FreeProws"), "nothing (pointer)");
}

TEST(MapiAbi, AClientCallsTheMethodsThatItMeans) {
  for (const std::string& line : abi::CallThroughOurs()) {
    const std::size_t scope = line.find("::");
    const std::size_t called = line.find(" called ");
    const std::string meant = line.substr(scope + 2, called - scope - 2);
    const std::string count = line.substr(line.rfind(' ') + 1);
    EXPECT_EQ(line.substr(called), " called " + meant + ", result " + count + " of " + count)
        << line;
  }
  EXPECT_EQ(abi::CallCount(), 33);
}

// These headers have no such interface, so its slots stand here: behind IUnknown's three.
TEST(MapiAbi, TheClientShutdownsMethodsStandInTheirOrder) {
  EXPECT_EQ(abi::SlotOf(&IMAPIClientShutdown::QueryFastShutdown), "slot 3");
  EXPECT_EQ(abi::SlotOf(&IMAPIClientShutdown::UnusedNotifyProcessShutdown), "slot 4");
  EXPECT_EQ(abi::SlotOf(&IMAPIClientShutdown::DoFastShutdown), "slot 5");
  EXPECT_EQ(abi::MethodShape(&IMAPIClientShutdown::QueryFastShutdown), "integer of 4 ()");
  EXPECT_EQ(abi::MethodShape(&IMAPIClientShutdown::DoFastShutdown), "integer of 4 ()");
}

}  // namespace
}  // namespace zentpost
