// What the compilers need to be told about functions that cross a library's border.
#pragma once

// The calling convention of what Windows' libraries export. It matters on x86 only.
#if defined(_WIN32) && defined(__i386__)
#define PLATFORM_STDCALL __attribute__((stdcall))
#else
#define PLATFORM_STDCALL
#endif

// Exports a function from a library of ours. The name that it gets is the plain one: libraries are
// linked with --kill-at, where stdcall would decorate it.
#if defined(_WIN32)
#define PLATFORM_EXPORT __attribute__((dllexport))
#else
#define PLATFORM_EXPORT __attribute__((visibility("default")))
#endif
