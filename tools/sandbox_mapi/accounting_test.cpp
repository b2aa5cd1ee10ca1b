#include "tools/sandbox_mapi/accounting.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace zentpost::sandbox_mapi {
namespace {

constexpr char kClean[] = "no leaks, no double frees, no overruns";

using Lines = std::vector<std::string>;

volatile unsigned char* Bytes(void* buffer) {
  return static_cast<volatile unsigned char*>(buffer);
}

TEST(Accounting, WhatIsGivenBackIsNoFinding) {
  Accounting accounting;
  EXPECT_TRUE(accounting.IsUnused());
  void* const buffer = accounting.Allocate(10, BufferKind::kBuffer);
  ASSERT_NE(buffer, nullptr);
  EXPECT_EQ(accounting.SizeOf(buffer), 10u);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(buffer) % 8, 0u) << "values of 64 bits go into it";
  for (int i = 0; i < 10; ++i) {
    Bytes(buffer)[i] = 0;
  }
  EXPECT_NE(accounting.AllocateMore(5, buffer), nullptr);
  EXPECT_TRUE(accounting.Free(buffer));
  EXPECT_TRUE(accounting.Free(nullptr));
  EXPECT_EQ(accounting.Findings(), Lines{kClean});
}

TEST(Accounting, BuffersThatStayAreLeaks) {
  Accounting accounting;
  accounting.AddCall("first");
  static_cast<void>(accounting.Allocate(24, BufferKind::kBuffer));
  accounting.AddCall("second");
  void* const set = accounting.Allocate(8, BufferKind::kRowSet);
  static_cast<void>(accounting.AllocateMore(100, set));
  EXPECT_EQ(accounting.Findings().back(), "2 leaks, no double frees, no overruns");
  const Lines findings = accounting.Findings();
  ASSERT_EQ(findings.size(), 3u);
  EXPECT_NE(
      std::find(findings.begin(), findings.end(), "not freed: buffer of 24 bytes from call 2"),
      findings.end());
  EXPECT_NE(
      std::find(findings.begin(), findings.end(), "not freed: row set of 8 bytes from call 3"),
      findings.end());
}

TEST(Accounting, SecondFreeIsSeenEvenWhenOthersWereAllocatedMeanwhile) {
  Accounting accounting;
  void* const buffer = accounting.Allocate(24, BufferKind::kBuffer);
  EXPECT_TRUE(accounting.Free(buffer));
  void* const next = accounting.Allocate(24, BufferKind::kBuffer);
  EXPECT_NE(next, buffer);
  EXPECT_FALSE(accounting.Free(buffer));
  EXPECT_TRUE(accounting.Free(next));
  EXPECT_EQ(accounting.Findings(), (Lines{"freed again: buffer of 24 bytes from call 1 (call 1)",
                                          "no leaks, 1 double free, no overruns"}));
}

TEST(Accounting, LargeBufferFreedTwiceIsSeenToo) {
  Accounting accounting;
  void* const buffer = accounting.Allocate(std::size_t{2} << 20, BufferKind::kBuffer);
  EXPECT_TRUE(accounting.Free(buffer));
  EXPECT_FALSE(accounting.Free(buffer));
  EXPECT_EQ(accounting.Findings().back(), "no leaks, 1 double free, no overruns");
}

TEST(Accounting, WritesOutsideABufferAreSeenOnBothSides) {
  for (const int offset : {-1, 10, 41}) {
    SCOPED_TRACE(offset);
    Accounting accounting;
    void* const buffer = accounting.Allocate(10, BufferKind::kBuffer);
    Bytes(buffer)[offset] = 7;
    EXPECT_EQ(accounting.Findings().back(), "1 leak, no double frees, 1 overrun") << "while alive";
    EXPECT_TRUE(accounting.Free(buffer));
    EXPECT_EQ(accounting.Findings().back(), "no leaks, no double frees, 1 overrun");
  }
}

TEST(Accounting, WritesAfterTheFreeAreSeen) {
  Accounting accounting;
  void* const buffer = accounting.Allocate(10, BufferKind::kBuffer);
  EXPECT_TRUE(accounting.Free(buffer));
  Bytes(buffer)[9] = 7;
  EXPECT_EQ(accounting.Findings(),
            (Lines{"written after it was freed: buffer of 10 bytes from call 1",
                   "no leaks, no double frees, 1 overrun"}));
}

TEST(Accounting, ForeignPointersAreNotFreed) {
  Accounting accounting;
  char foreign = 0;
  EXPECT_FALSE(accounting.Free(&foreign));
  EXPECT_EQ(accounting.AllocateMore(4, &foreign), nullptr);
  void* const buffer = accounting.Allocate(10, BufferKind::kBuffer);
  void* const more = accounting.AllocateMore(4, buffer);
  EXPECT_FALSE(accounting.Free(more)) << "goes with the buffer that it belongs to";
  EXPECT_EQ(accounting.AllocateMore(4, more), nullptr);
  EXPECT_TRUE(accounting.Free(buffer));
  EXPECT_EQ(accounting.AllocateMore(4, buffer), nullptr) << "freed";
  EXPECT_EQ(accounting.Findings().back(), "no leaks, no double frees, no overruns, 5 wrong frees");
}

TEST(Accounting, ReferencesAreCountedAndObjectsEndWithTheAccounts) {
  int ended = 0;
  {
    Accounting accounting;
    int object = 0;
    accounting.AddObject(&object, "IThing", [&ended] { ++ended; });
    EXPECT_EQ(accounting.NameOf(&object), "#1 IThing");
    EXPECT_TRUE(accounting.IsOfType(&object, "IThing"));
    EXPECT_FALSE(accounting.IsOfType(&object, "IOther"));
    EXPECT_EQ(accounting.AddRef(&object), 2u);
    EXPECT_EQ(accounting.Findings(), (Lines{"not released: IThing from call 1, 2 references",
                                            "1 leak, no double frees, no overruns"}));
    EXPECT_EQ(accounting.Release(&object), 1u);
    EXPECT_TRUE(accounting.IsAlive(&object, "f"));
    EXPECT_EQ(accounting.Release(&object), 0u);
    EXPECT_EQ(accounting.Findings(), Lines{kClean});
    EXPECT_EQ(ended, 0);
  }
  EXPECT_EQ(ended, 1);
}

TEST(Accounting, UseOfAReleasedInterfaceIsSeen) {
  Accounting accounting;
  int object = 0;
  accounting.AddObject(&object, "IThing", [] {});
  EXPECT_EQ(accounting.Release(&object), 0u);
  EXPECT_EQ(accounting.Release(&object), 0u);
  EXPECT_EQ(accounting.AddRef(&object), 0u);
  EXPECT_FALSE(accounting.IsAlive(&object, "IThing::Do"));
  int foreign = 0;
  EXPECT_FALSE(accounting.IsAlive(&foreign, "f"));
  EXPECT_EQ(accounting.NameOf(&foreign), "foreign");
  EXPECT_EQ(accounting.NameOf(nullptr), "null");
  EXPECT_EQ(accounting.Findings(),
            (Lines{"released once too often: IThing from call 1 (call 1)",
                   "AddRef of the released IThing (call 1)",
                   "IThing::Do was called on, or got, the released IThing (call 1)",
                   "f got an object that is not of this library (call 1)",
                   "no leaks, no double frees, no overruns, 4 uses of released interfaces"}));
}

TEST(Accounting, EveryLineIsHandedOnAtOnce) {
  Accounting accounting;
  Lines lines;
  accounting.SetSink([&lines](std::string_view line) { lines.emplace_back(line); });
  accounting.AddCall("f() = 0");
  accounting.AddProblem("odd");
  EXPECT_EQ(lines, (Lines{"1 f() = 0", "odd (call 2)"}));
  EXPECT_EQ(accounting.Calls(), Lines{"1 f() = 0"});
  EXPECT_EQ(accounting.Findings().back(),
            "no leaks, no double frees, no overruns, 1 other problem");
}

TEST(Accounting, CallsOfANameAreCounted) {
  Accounting accounting;
  EXPECT_EQ(accounting.Count("a"), 1u);
  EXPECT_EQ(accounting.Count("b"), 1u);
  EXPECT_EQ(accounting.Count("a"), 2u);
}

}  // namespace
}  // namespace zentpost::sandbox_mapi
