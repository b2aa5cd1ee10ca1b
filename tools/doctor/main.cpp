#include "platform/console.h"
#include "tools/doctor/program.h"

int platform::RunConsoleProgram(std::u16string_view command_line, Console& console) {
  return zentpost::doctor::RunDoctor(command_line, console);
}
