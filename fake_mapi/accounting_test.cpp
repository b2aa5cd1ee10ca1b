#include "fake_mapi/accounting.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace zentpost::fake_mapi {
namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;  // which ends the program at writing out of bounds
#else
constexpr bool kSanitized = false;
#endif

volatile char* Bytes(void* block) {
  return static_cast<volatile char*>(block);
}

std::string TextOf(const Accounting& accounting) {
  std::string text;
  for (const Finding& finding : accounting.Findings()) {
    text += finding.text + " (" + std::to_string(finding.call) + ")\n";
  }
  return text + SumOf(accounting.Findings());
}

std::string Clean(const std::string& more = {}) {
  return "no leaks, no double frees, no overruns" + more;
}

TEST(Accounting, WhatIsGivenBackIsNoFinding) {
  Accounting accounting;
  void* const block = accounting.Allocate(10, "F");
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(accounting.SizeOf(block), 10u);
  EXPECT_EQ(accounting.NameOfBlock(block), "block 1");
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 8, 0u) << "values of 64 bits go into it";
  for (int i = 0; i < 10; ++i) {
    Bytes(block)[i] = 0;
  }
  EXPECT_NE(accounting.AllocatePart(5, block), nullptr);
  EXPECT_TRUE(accounting.Free(block, "Free"));
  EXPECT_TRUE(accounting.Free(nullptr, "Free"));
  EXPECT_EQ(accounting.SizeOf(block), 0u);
  EXPECT_TRUE(accounting.Free(accounting.AllocateRows(4, "table"), "FreeRows", BlockUse::kRows));
  auto thing = std::make_unique<Object>("IThing", "thing");
  thing->address = &accounting;
  accounting.Add(std::move(thing));
  EXPECT_EQ(accounting.NameOfObject(&accounting), "thing");
  accounting.Find(&accounting)->references = 0;
  EXPECT_EQ(accounting.NameOfObject(&accounting), "thing (released)");
  EXPECT_EQ(TextOf(accounting), Clean());
}

struct Case {
  const char* name;
  std::function<void(Accounting&)> act;
  std::string findings;  // each with the number of its call, and the sum
  bool is_for_sanitizer = false;
};

// Every kind of finding.
TEST(Accounting, EveryFaultIsAFinding) {
  static int foreign = 0;
  constexpr std::size_t kLarge = std::size_t{2} << 20;
  const Case cases[] = {
      {"leaks, in the order in which things were handed out",
       [](Accounting& books) {
         static_cast<void>(books.AllocateRows(8, "store table"));
         books.BeginCall(8);
         static_cast<void>(books.AllocatePart(9, books.Allocate(24, "F")));
         books.Add(std::make_unique<Object>("IThing", "thing"));
         books.Find(nullptr)->references = 2;
       },
       "thing: references left: 2 (8)\nrows of the store table of HrQueryAllRows: not freed (7)\n"
       "block 1 of F: not freed (8)\n3 leaks, no double frees, no overruns"},
      {"a second free, although others were allocated meanwhile",
       [](Accounting& books) {
         void* const block = books.Allocate(24, "F");
         EXPECT_TRUE(books.Free(block, "Free"));
         void* const next = books.Allocate(24, "F");
         EXPECT_NE(next, block);
         EXPECT_FALSE(books.Free(block, "Free"));
         EXPECT_TRUE(books.Free(next, "Free"));
       },
       "Free of block 1, which is freed already (7)\nno leaks, 1 double free, no overruns"},
      {"a second free of a large block",
       [](Accounting& books) {
         void* const block = books.Allocate(kLarge, "F");
         EXPECT_TRUE(books.Free(block, "Free"));
         EXPECT_FALSE(books.Free(block, "Free"));
       },
       "Free of block 1, which is freed already (7)\nno leaks, 1 double free, no overruns"},
      {"what is not the library's, parts, rows and no rows",
       [](Accounting& books) {
         EXPECT_FALSE(books.Free(&foreign, "Free"));
         void* const rows = books.AllocateRows(8, "table");
         void* const part = books.AllocatePart(9, rows);
         EXPECT_FALSE(books.Free(part, "Free"));
         EXPECT_FALSE(books.Free(rows, "Free"));
         EXPECT_TRUE(books.Free(rows, "FreeRows", BlockUse::kRows));
         EXPECT_FALSE(books.Free(part, "Free"));
         void* const block = books.Allocate(1, "F");
         EXPECT_FALSE(books.Free(block, "FreeRows", BlockUse::kRows));
         EXPECT_TRUE(books.Free(block, "Free"));
       },
       "Free of a block that is not the library's (7)\nFree of a part of rows of the table (7)\n"
       "Free of rows of the table (7)\n"
       "Free of a part of rows of the table, which is freed already (7)\n"
       "FreeRows of block 1 (7)\nno leaks, 1 double free, no overruns, 4 wrong frees"},
      {"parts of what can have none",
       [](Accounting& books) {
         EXPECT_EQ(books.AllocatePart(4, &foreign), nullptr);
         void* const block = books.Allocate(4, "F");
         EXPECT_EQ(books.AllocatePart(4, books.AllocatePart(4, block)), nullptr);
         EXPECT_TRUE(books.Free(block, "Free"));
         EXPECT_EQ(books.AllocatePart(4, block), nullptr);
       },
       "a part for an unknown block, which can have none (7)\n"
       "a part for a part of block 1, which can have none (7)\n"
       "a part for block 1, which can have none (7)\n" +
           Clean(", 3 wrong frees")},
      {"writing on both sides of a block, found at its end",
       [](Accounting& books) {
         void* const block = books.Allocate(10, "F");
         Bytes(block)[-1] = 7;
         Bytes(block)[10] = 7;
         EXPECT_EQ(books.Findings().size(), 3u) << "while it is there";
         EXPECT_TRUE(books.Free(block, "Free"));
       },
       "block 1 of F: written before its beginning (7)\nblock 1 of F: written beyond its end (7)\n"
       "no leaks, no double frees, 2 overruns",
       true},
      {"writing beyond a block that stays, and far behind a part",
       [](Accounting& books) {
         void* const block = books.Allocate(10, "F");
         Bytes(block)[10] = 7;
         Bytes(books.AllocatePart(3, block))[3 + 2 * alignof(std::max_align_t) - 1] = 7;
       },
       "block 1 of F: written beyond its end (7)\nblock 1 of F: not freed (7)\n"
       "a part of block 1 of F: written beyond its end (7)\n"
       "1 leak, no double frees, 2 overruns",
       true},
      {"writing after the free",
       [](Accounting& books) {
         void* const block = books.Allocate(10, "F");
         EXPECT_TRUE(books.Free(block, "Free"));
         Bytes(block)[9] = 7;
       },
       "block 1 of F: written after it was freed (7)\nno leaks, no double frees, 1 overrun", true},
      {"what was added, and garbage, which has no number",
       [](Accounting& books) {
         books.Add(FindingKind::kReleased, "one");
         books.Add(FindingKind::kOther, "two");
         void* const block = books.Allocate(10, "F");
         books.MakeGarbage(block);
         EXPECT_FALSE(books.Free(block, "Free"));
         books.Add(std::make_unique<Object>("IThing", "thing"));
         books.MakeGarbage(nullptr);
         EXPECT_EQ(books.Find(nullptr)->name, "garbage thing");
         void* const next = books.Allocate(10, "F");
         EXPECT_EQ(books.NameOfBlock(next), "block 1");
         EXPECT_TRUE(books.Free(next, "Free"));
       },
       "one (7)\ntwo (7)\nFree of garbage of F, which is freed already (7)\n"
       "no leaks, 1 double free, no overruns, 1 use of a released interface, 1 other problem"},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    if (test.is_for_sanitizer && kSanitized) {
      continue;
    }
    Accounting accounting;
    accounting.BeginCall(7);
    test.act(accounting);
    EXPECT_EQ(TextOf(accounting), test.findings);
  }
}

}  // namespace
}  // namespace zentpost::fake_mapi
