// The fixture of tests that reach Extended MAPI: a fresh fake platform with the library of
// testing/fake_mapi.h on it, and books that are in order afterwards.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "mapiload/library.h"
#include "mapiload/process_state.h"
#include "testing/fake_mapi.h"
#include "testing/fake_platform/fixture.h"
#include "testing/steps.h"

namespace zentpost::test {

// An unusual failure, and its line in the log.
inline constexpr HRESULT kFailure = MakeResult(0x80040115);
inline constexpr char kFailureCode[] =
    "log ERROR: Code 0x80040115 --> (CDO) A network error occured.";

inline std::string Lines(const std::vector<std::string>& steps) {
  std::string lines;
  for (const std::string& step : steps) {
    lines += step + "\n";
  }
  return lines;
}

class MapiTest : public platform::fake::FakePlatformTest {
 protected:
  MapiTest() { StartOver(); }

  // Makes everything new, for a test of several cases. `without` are exports that the library
  // lacks.
  void StartOver(const std::vector<std::string>& without = {}) {
    StartOverWithoutLibrary();
    FakeMapi::Install(without);
    // The search for the library is done with, so that only its calls are seen.
    GetPrivateMAPI();
    fake_.ClearCalls();
  }

  // The same without any library.
  void StartOverWithoutLibrary() {
    SettleAccounts();
    ForgetMapiLoading();
    fake_.Reset();
    mapi_ = std::make_unique<FakeMapi>();
    mapi_->is_initialized = true;  // tests may begin below MAPIInitialize
  }

  // Objects for tests that call below the logon, given back before the accounts are settled.
  IMAPISession* Session() { return Keep(fake_mapi::NewSession(*mapi_)); }
  IMsgStore* Store() { return Keep(fake_mapi::NewStore(*mapi_)); }
  IMAPIFolder* Outbox() { return Keep(fake_mapi::NewOutbox(*mapi_)); }
  IMessage* Message() { return Keep(fake_mapi::NewMessage(*mapi_)); }

  // Looks into the library's books and puts it away. Done at the latest when the test ends.
  void SettleAccounts(const std::string& complaints = {}) {
    if (mapi_ != nullptr) {
      for (IUnknown* const object : kept_) {
        object->Release();
      }
      kept_.clear();
      EXPECT_EQ(mapi_->Accounts(), complaints);
      mapi_.reset();
    }
  }

  void TearDown() override {
    SettleAccounts();
    ForgetMapiLoading();
    FakePlatformTest::TearDown();
  }

  // What happened so far, one line for each step: log lines, calls of the library, and what was
  // asked of the system but for the binding of functions.
  [[nodiscard]] std::string Trace() const {
    std::string trace;
    for (const std::string& step : Steps()) {
      if (!step.starts_with("FindProcedure(")) {
        trace += step + "\n";
      }
    }
    return trace;
  }

  // The library's call of this name, of which there is to be one.
  [[nodiscard]] std::string CallOf(const std::string& name) const {
    const std::vector<std::string> calls = mapi_->CallsOf(name);
    return calls.size() == 1 ? calls[0] : std::to_string(calls.size()) + " calls";
  }

  std::unique_ptr<FakeMapi> mapi_;

 private:
  template <class Interface>
  Interface* Keep(Interface* object) {
    kept_.push_back(object);
    return object;
  }

  std::vector<IUnknown*> kept_;
};

}  // namespace zentpost::test
