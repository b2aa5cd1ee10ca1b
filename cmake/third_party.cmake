# cjson, GTest::gtest, GTest::gtest_main, benchmark::benchmark: installed packages where the target
# system has them. A cross build compiles cJSON and GoogleTest from the distribution's own source
# packages, which scripts/prepare puts into build/third_party and /usr/src.
find_package(Threads REQUIRED)
add_library(cjson INTERFACE)

if(CMAKE_CROSSCOMPILING)
  set(cjson_parent ${CMAKE_SOURCE_DIR}/build/third_party)
  if(NOT EXISTS ${cjson_parent}/cjson/cJSON.c)
    message(FATAL_ERROR "cJSON's source is missing: run scripts/prepare windows")
  endif()
  add_library(cjson_static STATIC ${cjson_parent}/cjson/cJSON.c)
  target_include_directories(cjson_static SYSTEM PUBLIC ${cjson_parent})
  target_compile_definitions(cjson_static PUBLIC CJSON_HIDE_SYMBOLS)
  target_compile_options(cjson_static PRIVATE -fstack-protector-strong -ffunction-sections -fdata-sections
    -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)
  target_link_libraries(cjson INTERFACE cjson_static)

  if(BUILD_TESTING)
    set(BUILD_GMOCK OFF)
    set(INSTALL_GTEST OFF)
    add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
  endif()
else()
  find_path(CJSON_INCLUDE_DIR cjson/cJSON.h REQUIRED)
  find_library(CJSON_LIBRARY cjson REQUIRED)
  target_include_directories(cjson SYSTEM INTERFACE ${CJSON_INCLUDE_DIR})
  target_link_libraries(cjson INTERFACE ${CJSON_LIBRARY})
  if(BUILD_TESTING)
    find_package(GTest REQUIRED)
    find_package(benchmark QUIET)
  endif()
endif()
