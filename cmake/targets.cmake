# zentpost_library(NAME SOURCES ... [LIBS ...])
# A folder's static library. On Windows a twin NAME_checked is made of the same sources with traps
# on undefined behaviour; the tests link that one and the product links NAME.
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
    if(TARGET ${lib}_checked)
      list(APPEND result ${lib}_checked)
    else()
      list(APPEND result ${lib})
    endif()
  endforeach()
  set(${out} ${result} PARENT_SCOPE)
endfunction()

# zentpost_backend(TARGET BACKEND): puts a machine under an executable (platform_native or
# platform_fake). Libraries never name one: `platform` asks the executable that links them.
function(zentpost_backend target backend)
  set_target_properties(${target} PROPERTIES ZENTPOST_BACKEND ${backend})
endfunction()

# zentpost_test_executable(NAME SOURCES ... [LIBS ...] [BACKEND platform_native|platform_fake])
# A GoogleTest executable that is not registered by itself.
function(zentpost_test_executable name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "BACKEND" "SOURCES;LIBS")
  add_executable(${name} ${arg_SOURCES})
  zentpost_checked(libs ${arg_LIBS})
  target_link_libraries(${name} PRIVATE ${libs} zentpost_flags zentpost_traps GTest::gtest_main GTest::gtest
    Threads::Threads)
  if(arg_BACKEND)
    zentpost_checked(backend ${arg_BACKEND})
    zentpost_backend(${name} ${backend})
    target_link_libraries(${name} PRIVATE platform)
  endif()
endfunction()

# zentpost_add_test(NAME ...): the same, registered with CTest under NAME. Under a Windows preset it
# runs in Wine; an exit code of 77 says that this machine cannot execute it.
function(zentpost_add_test name)
  zentpost_test_executable(${name} ${ARGN})
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 600)
endfunction()
