// doctor_page [FILE]: prints the page docs/nothing-was-sent.md, or holds FILE against it.
#include <iostream>

#include "tools/doctor/page.h"
#include "tools/support/files.h"

int main(int argc, char** argv) {
  const std::string page = zentpost::doctor::Page();
  if (argc < 2) {
    std::cout << page;
    return 0;
  }
  if (zentpost::support::ReadBytes(argv[1]) == page) {
    return 0;
  }
  std::cerr << argv[1] << " does not say what the tables in tools/doctor say. Make it anew:\n"
            << argv[0] << " >" << argv[1] << "\n";
  return 1;
}
