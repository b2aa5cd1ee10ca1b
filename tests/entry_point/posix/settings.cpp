#include "tests/entry_point/probe.h"

namespace zentpost::entry_point {

std::string ProcessSettings() {
  return {};
}

}  // namespace zentpost::entry_point
