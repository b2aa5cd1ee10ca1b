#include <cstdlib>

#include "fake_mapi/call.h"
#include "mapi_types.h"

namespace zentpost::fake_mapi {

HRESULT Unsupported(const IUnknown* object, const char* method) {
  Client::State& state = TheClient().Inside();
  state.lock.lock();
  Object* const called = state.accounting.Find(object);
  state.lock.unlock();
  if (called == nullptr) {
    std::abort();
  }
  Call call(*called, method);
  call.Record({});
  call.Refuse(kNoSupport);
  return call.Result();
}

}  // namespace zentpost::fake_mapi

// What a library with two names for each function has under the linker's.
extern "C" void FakeMapiMustNotBeCalled() {
  std::abort();
}
