# cmake -D COMPILER=... -D ROOT=... -D SOURCE=... -P check.cmake
# Compiles SOURCE without output. Its first line says what has to come of it:
#   // expect: success   it compiles
#   // expect: TEXT      it does not, and the compiler says TEXT
file(STRINGS ${SOURCE} first_line LIMIT_COUNT 1)
if(NOT first_line MATCHES "^// expect: (.+)$")
  message(FATAL_ERROR "${SOURCE} does not say what to expect")
endif()
set(expected ${CMAKE_MATCH_1})

set(ENV{LC_ALL} C)
execute_process(
  COMMAND ${COMPILER} -std=c++20 -fsyntax-only -fmessage-length=0 -Wall -Wextra -I${ROOT} ${SOURCE}
  RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
if(expected STREQUAL "success")
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "does not compile (${result}):\n${output}")
  endif()
elseif(NOT result EQUAL 1)
  message(FATAL_ERROR "ought to be refused by the compiler, which ends with ${result}:\n${output}")
elseif(NOT output MATCHES "(error|note): [^\n]*${expected}")
  message(FATAL_ERROR "is refused for another reason than '${expected}':\n${output}")
endif()
