// outcomes_page [FILE]: prints the page docs/outcomes.md, or holds FILE against it and says how
// many outcomes it has.
#include <iostream>

#include "testing/outcomes.h"
#include "tests/outcomes/page.h"
#include "tools/support/files.h"

int main(int argc, char** argv) {
  const std::string page = zentpost::test::OutcomesPage();
  if (argc < 2) {
    std::cout << page;
    return 0;
  }
  if (zentpost::support::ReadBytes(argv[1]) == page) {
    std::cout << argv[1] << ": " << zentpost::test::Outcomes().size() << " outcomes\n";
    return 0;
  }
  std::cerr << argv[1] << " does not say what testing/outcome_table.cpp says. Make it anew:\n"
            << argv[0] << " >" << argv[1] << "\n";
  return 1;
}
