// What the compilers need to be told about functions that cross a library's border.
#pragma once

#if !defined(__GNUC__)
#error "how this compiler writes the calling convention of Windows' libraries is not known"
#elif !defined(_WIN32) && !defined(__unix__)
#error \
    "this system is neither Windows nor a Unix: which calling convention its libraries have is not known"
#endif

// The calling convention of what Windows' libraries export. It matters on x86 only. There a linker
// knows such a function as NAME@BYTES, with the bytes of its arguments, each rounded up to 4.
#if defined(_WIN32) && defined(__i386__)
#define PLATFORM_STDCALL __attribute__((stdcall))
#define PLATFORM_STDCALL_IS_DECORATED 1
#else
#define PLATFORM_STDCALL
#define PLATFORM_STDCALL_IS_DECORATED 0
#endif

// Exports a function from a library of ours. The name that it gets is the plain one: libraries are
// linked with --kill-at, where stdcall would decorate it.
#if defined(_WIN32)
#define PLATFORM_EXPORT __attribute__((dllexport))
#else
#define PLATFORM_EXPORT __attribute__((visibility("default")))
#endif
