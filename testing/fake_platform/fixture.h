// The fixture of every test that runs on the machine in memory: a fresh machine for each test, and
// nothing left open on it afterwards.
#pragma once

#include <gtest/gtest.h>

#include "testing/fake_platform/fake_platform.h"

namespace platform::fake {

// Name the suite with an alias (`using LogFile = platform::fake::MachineTest;`) or a derived class.
class MachineTest : public ::testing::Test {
 protected:
  // Here rather than in SetUp, so that a derived fixture can furnish the machine in its
  // constructor.
  MachineTest() { machine_.Reset(); }

  void TearDown() override {
    EXPECT_EQ(machine_.OpenHandles(), 0u) << "handles left open";
    machine_.Reset();
  }

  Machine& machine_ = TheMachine();
};

}  // namespace platform::fake
