#include <csignal>

#include "tools/support/program.h"

int main(int argc, char** argv) {
  // A reader that closes the pipe must not kill the program while it has files to put away.
  std::signal(SIGPIPE, SIG_IGN);
  return zentpost::RunTool(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
}
