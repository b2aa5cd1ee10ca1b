#include "testing/end_to_end/windows/call_frame.h"

namespace zentpost::e2e {

const void* FirstArgument(HANDLE /*process*/, const CONTEXT& context) {
  return reinterpret_cast<const void*>(context.Rcx);
}

bool ReturnFromFunction(HANDLE process, CONTEXT& context) {
  DWORD64 return_address = 0;
  if (ReadProcessMemory(process, reinterpret_cast<const void*>(context.Rsp), &return_address,
                        sizeof return_address, nullptr) == 0) {
    return false;
  }
  context.Rip = return_address;
  context.Rsp += sizeof return_address;
  return true;
}

}  // namespace zentpost::e2e
