// What the fake libraries, the program that uses them and the tests agree on.
#pragma once

namespace zentpost::mapi_search {

// A fake of a mail client's MAPI library exports the nine functions that the tool calls, each
// under its own name. It does nothing but to record the call, and gives what testing/entry_points.h
// says. Its further export "FakeLibraryLastCall" tells of the last call, "NAME(ARGUMENT, ...)", the
// arguments in hexadecimal; nothing when there was none since it was asked last.
using LastCallFunction = const char* (*)();

// A fake of the system's MAPI stub exports FGetComponentPath alone. Asked for this component
// and qualifier, with space for 260 bytes and without leave to install, it answers with what stands
// in this variable of the environment; otherwise, and without the variable, it knows nothing.
inline constexpr char kComponent[] = "{6F3D1A52-0C7B-4D0E-9A41-2B9E5C8D7F13}";
inline constexpr char kQualifier[] = "1033";
inline constexpr char kAnswerVariable[] = "ZENTPOST_TEST_COMPONENT_PATH";

}  // namespace zentpost::mapi_search
