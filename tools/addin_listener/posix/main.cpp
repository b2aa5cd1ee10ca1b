#include <csignal>
#include <string>
#include <vector>

#include "tools/addin_listener/program.h"

int main(int argc, char** argv) {
  using zentpost::addin_listener::RunProgram;
  // A reader that closes the pipe must not kill the program while it has files to put away.
  std::signal(SIGPIPE, SIG_IGN);
  const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  return RunProgram(arguments);
}
