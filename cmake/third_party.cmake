# cjson, asio, GTest::gtest, GTest::gtest_main, benchmark::benchmark: installed packages where the target
# system has them. A cross build compiles cJSON and GoogleTest from the distribution's own source
# packages, which scripts/prepare puts into build/third_party and /usr/src, and links to the folders of
# header-only libraries, since the host's include folder must not be on its path.
find_package(Threads REQUIRED)
add_library(cjson INTERFACE)
add_library(asio INTERFACE)

# zentpost_need(PACKAGE CONDITION...): ends the configuration, with what to do, where it does not hold.
function(zentpost_need package)
  if(${ARGN})
    return()
  endif()
  if(CMAKE_CROSSCOMPILING)
    set(part windows)
  else()
    set(part host)
  endif()
  message(FATAL_ERROR "The package ${package} is missing: run scripts/prepare ${part}")
endfunction()

if(CMAKE_CROSSCOMPILING)
  set(cjson_parent ${CMAKE_SOURCE_DIR}/build/third_party)
  zentpost_need("cjson (its source)" EXISTS ${cjson_parent}/cjson/cJSON.c)
  add_library(cjson_static STATIC ${cjson_parent}/cjson/cJSON.c)
  target_include_directories(cjson_static SYSTEM PUBLIC ${cjson_parent})
  target_compile_definitions(cjson_static PUBLIC CJSON_HIDE_SYMBOLS)
  target_compile_options(cjson_static PRIVATE -fstack-protector-strong -ffunction-sections -fdata-sections
    -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)
  target_link_libraries(cjson INTERFACE cjson_static)

  zentpost_need(libasio-dev EXISTS /usr/include/asio.hpp)
  set(ASIO_INCLUDE_DIR ${CMAKE_BINARY_DIR}/third_party)
  file(MAKE_DIRECTORY ${ASIO_INCLUDE_DIR})
  file(CREATE_LINK /usr/include/asio ${ASIO_INCLUDE_DIR}/asio SYMBOLIC)

  if(BUILD_TESTING)
    zentpost_need(libgtest-dev EXISTS /usr/src/googletest/CMakeLists.txt)
    set(BUILD_GMOCK OFF)
    set(INSTALL_GTEST OFF)
    add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
    target_compile_options(gtest PRIVATE -O0)  # as the tests, which compile longer than they run
  endif()
else()
  find_path(CJSON_INCLUDE_DIR cjson/cJSON.h)
  find_library(CJSON_LIBRARY cjson)
  zentpost_need(libcjson-dev CJSON_INCLUDE_DIR AND CJSON_LIBRARY)
  target_include_directories(cjson SYSTEM INTERFACE ${CJSON_INCLUDE_DIR})
  target_link_libraries(cjson INTERFACE ${CJSON_LIBRARY})
  find_path(ASIO_INCLUDE_DIR asio.hpp)
  zentpost_need(libasio-dev ASIO_INCLUDE_DIR)
  if(BUILD_TESTING)
    find_package(GTest QUIET)
    zentpost_need(libgtest-dev GTest_FOUND)
    find_package(benchmark QUIET)
  endif()
endif()

# Sockets on Windows behave as on the other systems by select: completion ports cannot wait for a
# connection without accepting it.
target_include_directories(asio SYSTEM INTERFACE ${ASIO_INCLUDE_DIR})
target_compile_definitions(asio INTERFACE ASIO_STANDALONE ASIO_NO_DEPRECATED ASIO_NO_TS_EXECUTORS
  ASIO_DISABLE_IOCP)
target_link_libraries(asio INTERFACE Threads::Threads $<$<PLATFORM_ID:Windows>:ws2_32>)
# The thread sanitizer does not know fences. What threads share here is behind mutexes.
if(ZENTPOST_SANITIZE MATCHES "thread")
  target_compile_definitions(asio INTERFACE ASIO_DISABLE_FENCED_BLOCK)
endif()
