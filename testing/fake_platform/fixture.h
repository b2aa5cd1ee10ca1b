// The fixture of every test that runs on the fake platform: a fresh machine for each test, and
// nothing left open on it afterwards.
#pragma once

#include <gtest/gtest.h>

#include "testing/fake_platform/fake_platform.h"

namespace platform::fake {

// Name the suite with an alias (`using LogFile = platform::fake::FakePlatformTest;`) or a derived
// class.
class FakePlatformTest : public ::testing::Test {
 protected:
  // Here rather than in SetUp, so that a derived fixture can prepare the machine in its
  // constructor.
  FakePlatformTest() { fake_.Reset(); }

  void TearDown() override {
    EXPECT_EQ(fake_.OpenHandles(), 0u) << "handles left open";
    fake_.Reset();
  }

  FakePlatform& fake_ = TheFakePlatform();
};

}  // namespace platform::fake
