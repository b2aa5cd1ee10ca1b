# zentpost_flags: warnings and code generation for every target of ours, never for third-party code.
add_library(zentpost_flags INTERFACE)
target_include_directories(zentpost_flags INTERFACE ${CMAKE_SOURCE_DIR})
target_compile_options(zentpost_flags INTERFACE
  -Wall -Wextra -Wconversion -Wshadow -Werror
  -fstack-protector-strong -ffunction-sections -fdata-sections
  # No path of the building machine may end up in an executable.
  -ffile-prefix-map=${CMAKE_SOURCE_DIR}/= -ffile-prefix-map=${CMAKE_BINARY_DIR}/=)

if(WIN32)
  # 7 is the oldest Windows supported; the sockets' and the shell's declarations depend on it.
  target_compile_definitions(zentpost_flags INTERFACE UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX
    _WIN32_WINNT=0x0601 WINVER=0x0601)
  target_link_options(zentpost_flags INTERFACE
    -static -fstack-protector-strong
    LINKER:--gc-sections LINKER:--dynamicbase LINKER:--nxcompat LINKER:--no-insert-timestamp)
  if(CMAKE_SIZEOF_VOID_P EQUAL 8)
    target_link_options(zentpost_flags INTERFACE LINKER:--high-entropy-va)
  endif()
else()
  target_link_options(zentpost_flags INTERFACE LINKER:--gc-sections)
endif()

if(ZENTPOST_SANITIZE)
  target_compile_options(zentpost_flags INTERFACE
    -fsanitize=${ZENTPOST_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(zentpost_flags INTERFACE -fsanitize=${ZENTPOST_SANITIZE})
endif()

# zentpost_traps: the cross compiler has no sanitizer runtimes, but undefined behaviour can trap.
add_library(zentpost_traps INTERFACE)
if(WIN32)
  target_compile_options(zentpost_traps INTERFACE -fsanitize=undefined -fsanitize-undefined-trap-on-error)
endif()

# zentpost_tool_flags: for the tools, of which nobody waits: for size, which takes less time to compile as well.
# What they share with the host its sanitizers see.
add_library(zentpost_small INTERFACE)
target_compile_options(zentpost_small INTERFACE -Os)
add_library(zentpost_tool_flags INTERFACE)
target_link_libraries(zentpost_tool_flags INTERFACE zentpost_flags zentpost_small)

# zentpost_test_flags: for tests, which cost more to compile than to run. The host's debugger alone has lines.
add_library(zentpost_unoptimised INTERFACE)
target_compile_options(zentpost_unoptimised INTERFACE
  -O0 -g$<IF:$<PLATFORM_ID:Windows>,0,1> -fno-stack-protector -fno-function-sections -fno-data-sections)
add_library(zentpost_test_flags INTERFACE)
# The last option counts.
target_link_libraries(zentpost_test_flags INTERFACE zentpost_flags zentpost_unoptimised)
