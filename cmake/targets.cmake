# zentpost_library(NAME SOURCES ... [LIBS ...])
# A folder's static library of the product. On Windows a twin NAME_checked is made of the same sources
# with traps on undefined behaviour; the tests link that one and the product links NAME.
function(zentpost_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBS")
  add_library(${name} STATIC ${arg_SOURCES})
  target_link_libraries(${name} PUBLIC ${arg_LIBS} platform PRIVATE zentpost_flags)
  if(WIN32)
    add_library(${name}_checked STATIC EXCLUDE_FROM_ALL ${arg_SOURCES})
    zentpost_checked(checked_libs ${arg_LIBS})
    target_link_libraries(${name}_checked PUBLIC ${checked_libs} platform PRIVATE zentpost_flags zentpost_traps)
  endif()
endfunction()

# zentpost_checked(OUT LIB...): each library's twin with traps, where it has one.
function(zentpost_checked out)
  set(result)
  foreach(lib IN LISTS ARGN)
    list(APPEND result $<IF:$<TARGET_EXISTS:${lib}_checked>,${lib}_checked,${lib}>)
  endforeach()
  set(${out} ${result} PARENT_SCOPE)
endfunction()

# zentpost_tool_library(NAME SOURCES ... [LIBS ...])
# A static library of the tools, which their tests link as well.
function(zentpost_tool_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBS")
  add_library(${name} STATIC ${arg_SOURCES})
  target_link_libraries(${name} PUBLIC ${arg_LIBS} PRIVATE zentpost_tool_flags)
endfunction()

# zentpost_backend(TARGET BACKEND): puts a platform under an executable (platform_native or
# platform_fake). Libraries never name one: `platform` asks the executable that links them.
function(zentpost_backend target backend)
  set_target_properties(${target} PROPERTIES ZENTPOST_BACKEND ${backend})
endfunction()

if(NOT BUILD_TESTING)
  # What stands beside the sources and registers a test may stay as it is.
  function(zentpost_add_test)
  endfunction()
  return()
endif()

# The tests that the preset host-tsan builds.
add_custom_target(tests_with_threads)

# zentpost_test_library(NAME SOURCES ... [LIBS ...] [OPTIMISED])
# A library that only tests link. The sweeps spend most of their time in one that is OPTIMISED.
function(zentpost_test_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "OPTIMISED" "" "SOURCES;LIBS")
  add_library(${name} STATIC ${arg_SOURCES})
  zentpost_checked(libs ${arg_LIBS})
  target_link_libraries(${name} PUBLIC ${libs} platform GTest::gtest)
  if(arg_OPTIMISED)
    target_link_libraries(${name} PRIVATE zentpost_tool_flags)
  else()
    target_link_libraries(${name} PRIVATE zentpost_test_flags)
    target_precompile_headers(${name} REUSE_FROM testing_main)
  endif()
endfunction()

# zentpost_test_executable(NAME SOURCES ... [LIBS ...] [BACKEND platform_native|platform_fake])
# A GoogleTest executable that is not registered by itself.
function(zentpost_test_executable name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "BACKEND" "SOURCES;LIBS")
  add_executable(${name} ${arg_SOURCES})
  zentpost_checked(libs ${arg_LIBS})
  target_link_libraries(${name} PRIVATE ${libs} zentpost_test_flags GTest::gtest testing_main Threads::Threads)
  target_precompile_headers(${name} REUSE_FROM testing_main)
  # A 32-bit program of LLVM's linker does not find where an exception is caught.
  if(WIN32 AND CMAKE_CROSSCOMPILING AND CMAKE_SIZEOF_VOID_P EQUAL 8)
    target_link_options(${name} PRIVATE -wrapper ${PROJECT_SOURCE_DIR}/scripts/link-test)
  endif()
  if(arg_BACKEND)
    if(WIN32 AND arg_BACKEND STREQUAL platform_native)
      set(arg_BACKEND platform_native_checked)
    endif()
    zentpost_backend(${name} ${arg_BACKEND})
    target_link_libraries(${name} PRIVATE platform)
  endif()
endfunction()

# zentpost_add_test(NAME ... [LABELS ...]): the same, registered with CTest under NAME. Under a Windows
# preset it runs in Wine; an exit code of 77 says that this machine cannot execute it. Labels: `slow` is
# left out by ./check --quick, `threads` is what the preset host-tsan builds and runs.
function(zentpost_add_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "LABELS")
  zentpost_test_executable(${name} ${arg_UNPARSED_ARGUMENTS})
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 600 LABELS "${arg_LABELS}")
  if(threads IN_LIST arg_LABELS)
    add_dependencies(tests_with_threads ${name})
  endif()
endfunction()
