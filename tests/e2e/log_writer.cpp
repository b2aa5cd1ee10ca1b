// Logs two hundred lines as fast as it can, side by side with others of its kind: the log file has
// to hold every line whole. Its argument is a number for its lines. Says with one byte that it is
// ready and begins when its standard input ends.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "diag/log_file.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    return 2;
  }
  const int writer = std::atoi(argv[1]);
  std::putchar('r');
  std::fflush(stdout);
  while (std::getchar() != EOF) {
  }
  for (int line = 0; line < 200; ++line) {
    // Short ones and long ones, so that what is mixed up shows. The test makes the same text.
    const std::u16string filling(static_cast<std::size_t>((writer * 37 + line * 101) % 700),
                                 u'\u00E4');
    // The next line is for another writer, as far as that is up to this one.
    std::this_thread::yield();
    zentpost::LogDebug(u"writer %d line %d %s.", writer, line, filling);
  }
  return 0;
}
