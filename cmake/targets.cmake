# zentpost_library(NAME SOURCES ... [LIBS ...])
# A folder's static library of the product, which zentpost links. On Windows its twin NAME_checked is made
# of the same sources, with traps on undefined behaviour, for tests.
function(zentpost_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBS")
  add_library(${name} STATIC ${arg_SOURCES})
  target_link_libraries(${name} PUBLIC ${arg_LIBS} platform PRIVATE zentpost_flags)
  if(WIN32)
    target_compile_options(${name} PRIVATE -fno-rtti)
    add_library(${name}_checked STATIC EXCLUDE_FROM_ALL ${arg_SOURCES})
    zentpost_checked(checked_libs ${arg_LIBS})
    target_link_libraries(${name}_checked PUBLIC ${checked_libs} platform PRIVATE zentpost_flags zentpost_traps)
  endif()
endfunction()

# zentpost_checked(OUT LIB...): each library's checked twin, where it has one.
function(zentpost_checked out)
  set(result)
  foreach(lib IN LISTS ARGN)
    list(APPEND result $<IF:$<TARGET_EXISTS:${lib}_checked>,${lib}_checked,${lib}>)
  endforeach()
  set(${out} ${result} PARENT_SCOPE)
endfunction()

# zentpost_tool_library(NAME SOURCES ... [LIBS ...] [AS_ONE])
# A static library of the tools, which their tests link as well. For Windows the sources of one that is
# shipped are compiled AS_ONE: what several of them need of a template is there once, as are its unwind
# tables, of which the 32-bit linker drops none.
function(zentpost_tool_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "AS_ONE" "" "SOURCES;LIBS")
  add_library(${name} STATIC ${arg_SOURCES})
  target_link_libraries(${name} PUBLIC ${arg_LIBS} PRIVATE zentpost_tool_flags)
  if(WIN32 AND arg_AS_ONE)
    set_target_properties(${name} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 0)
    target_compile_options(${name} PRIVATE -fno-rtti)
  endif()
endfunction()

# zentpost_shipped(NAME DESCRIPTION): the executable NAME is part of the product. It stands where people
# look for it (build/PRESET), and on Windows it has a version resource and a manifest, and no symbols.
function(zentpost_shipped name description)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
  if(WIN32)
    set(folder ${CMAKE_CURRENT_BINARY_DIR}/${name}_resources)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/windows/program.rc.in ${folder}/${name}.rc @ONLY)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/windows/program.manifest.in ${folder}/${name}.manifest @ONLY)
    target_sources(${name} PRIVATE ${folder}/${name}.rc)
    set_source_files_properties(${folder}/${name}.rc PROPERTIES
      OBJECT_DEPENDS ${folder}/${name}.manifest
      INCLUDE_DIRECTORIES ${folder})
  endif()
  zentpost_released(${name})
endfunction()

# zentpost_released(NAME): its bytes follow from the sources. For Windows it is linked without symbols: to strip
# it later would write the time of day into it. The host's is stripped when it is installed, and has no
# build ID, which would follow from debug information, and so from the folder in which it was built.
function(zentpost_released name)
  if(WIN32)
    target_link_options(${name} PRIVATE $<$<CONFIG:Release>:-s>)
  else()
    target_link_options(${name} PRIVATE LINKER:--build-id=none)
  endif()
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

# zentpost_check_samples(NAME FIXTURE SAMPLES KIND...): a test that holds what those of the FIXTURE kept in
# the folder SAMPLES against the published schemas. A KIND is a schema's name, and a folder's.
function(zentpost_check_samples name fixture samples)
  list(JOIN ARGN " " kinds)
  add_test(NAME ${name}
    COMMAND ${CMAKE_COMMAND}
      -DPYTHON=${SYSTEM_PYTHON3}
      -DCHECK=${PROJECT_SOURCE_DIR}/tests/schema_check.py
      -DSAMPLES=${samples}
      -DKINDS=${kinds}
      -P ${PROJECT_SOURCE_DIR}/tests/check_samples.cmake)
  set_tests_properties(${name} PROPERTIES
    FIXTURES_REQUIRED ${fixture} SKIP_REGULAR_EXPRESSION "nothing was checked")
endfunction()
