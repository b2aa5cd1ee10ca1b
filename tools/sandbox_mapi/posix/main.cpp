#include <string>
#include <vector>

#include "tools/sandbox_mapi/program.h"

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  return zentpost::fake_mapi::sandbox::RunProgram(arguments);
}
