#include "testing/end_to_end/windows/call_frame.h"

namespace zentpost::e2e {
namespace {

// What the stack holds at the first instruction of a function of the system's calling convention.
struct Frame {
  DWORD return_address;
  DWORD argument;
};

bool ReadFrame(HANDLE process, const CONTEXT& context, Frame& frame) {
  return ReadProcessMemory(process, reinterpret_cast<const void*>(context.Esp), &frame,
                           sizeof frame, nullptr) != 0;
}

}  // namespace

const void* FirstArgument(HANDLE process, const CONTEXT& context) {
  Frame frame = {};
  return ReadFrame(process, context, frame) ? reinterpret_cast<const void*>(frame.argument)
                                            : nullptr;
}

bool ReturnFromFunction(HANDLE process, CONTEXT& context) {
  Frame frame = {};
  if (!ReadFrame(process, context, frame)) {
    return false;
  }
  context.Eip = frame.return_address;
  context.Esp += sizeof frame;  // The function takes its argument off the stack.
  return true;
}

}  // namespace zentpost::e2e
