#include <string>

#include "mapi_headers.h"
#include "tools/sandbox_mapi/library.h"

namespace zentpost::sandbox_mapi {

HRESULT Unsupported(const void* object, const char* method) {
  // "#3 IMessage"
  const std::string name = TheLibrary().accounting.NameOf(object);
  Call call(name.substr(name.find(' ') + 1) + "::" + method, object);
  return call.Fails() ? call.Failure() : call.Return(kNoSupport);
}

}  // namespace zentpost::sandbox_mapi
