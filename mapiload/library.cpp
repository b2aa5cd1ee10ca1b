#include "mapiload/library.h"

#include <memory>
#include <utility>

#include "mapiload/attempt.h"
#include "mapiload/discovery.h"
#include "mapiload/trace.h"

namespace zentpost {

using platform::Module;
using platform::RawModule;

namespace {

// The companion is a convenience: without it the library is installed all the same.
void LoadStoreProxy() {
  RawModule none{};
  if (storeProxyHandle.load(std::memory_order_acquire) != none) {
    return;
  }
  Module proxy = Attempt([] { return LoadFromOLMAPIDir(u"pstprx32.dll"); });
  if (proxy &&
      storeProxyHandle.compare_exchange_strong(none, proxy.Get(), std::memory_order_acq_rel)) {
    static_cast<void>(proxy.Detach());  // the process keeps it
  }
}

void Release(std::atomic<RawModule>& handle) {
  const Module released(handle.exchange(RawModule{}, std::memory_order_acq_rel));
}

RawModule ExitSearch() {
  const RawModule installed = GetMAPIHandle();
  MapiTrace(u"Exit GetPrivateMAPI: Returning GetMAPIHandle() = %p\n", {ForTrace(installed)});
  return installed;
}

}  // namespace

constinit ProcessState processState;

RawModule GetPrivateMAPI() {
  MapiTrace(u"Enter GetPrivateMAPI\n");
  const RawModule installed = GetMAPIHandle();
  if (installed != RawModule{}) {
    MapiTrace(u"Exit GetPrivateMAPI, hinstPrivateMAPI = %p\n", {ForTrace(installed)});
    return installed;
  }
  // Outlook's library, then that of older clients: whoever has loaded one wants it used.
  for (const char16_t* const name : {u"olmapi32.dll", u"msmapi32.dll"}) {
    Module loaded = Attempt([&] { return AttachToMAPIDll(name); });
    if (loaded) {
      SetMAPIHandle(std::move(loaded));
      return ExitSearch();
    }
  }
  Module found = Attempt(GetDefaultMapiHandle);
  if (found) {
    SetMAPIHandle(std::move(found));
  }
  return ExitSearch();
}

void SetMAPIHandle(Module hinstMAPI) {
  MapiTrace(u"Enter SetMAPIHandle: hinstMAPI = %p\n", {ForTrace(hinstMAPI.Get())});
  if (hinstMAPI) {
    LoadStoreProxy();
    // A newcomer that is refused is never seen by the entry points.
    RawModule none{};
    if (installedMapiHandle.compare_exchange_strong(none, hinstMAPI.Get(),
                                                    std::memory_order_acq_rel)) {
      static_cast<void>(hinstMAPI.Detach());  // the process keeps it
    } else {
      hinstMAPI.Reset();
    }
    MapiHandleGeneration.fetch_add(1, std::memory_order_acq_rel);
  } else {
    Release(storeProxyHandle);
    Release(installedMapiHandle);
  }
  MapiTrace(u"Exit SetMAPIHandle\n");
}

void ForgetMapiLoading() {
  Release(processState.storeProxyHandle);
  Release(processState.installedMapiHandle);
  Release(processState.provide_qualified_component.handle);
  Release(processState.get_module_handle_ex.handle);
  delete processState.system_directory.load();
  // Its members cannot be assigned as a whole.
  std::destroy_at(&processState);
  std::construct_at(&processState);
}

}  // namespace zentpost
