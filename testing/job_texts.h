// A job's parameters in a form that tests compare whole.
#pragma once

#include <string>

#include "app/job_parameters.h"
#include "testing/text_printers.h"

namespace zentpost::test {

// The entries in their order, in UTF-8, one line for each: "filename=C:\a.pdf\n".
inline std::string EntriesText(const ParameterList& list) {
  std::string text;
  for (const auto& [name, value] : list.Entries()) {
    text += Readable(name) + "=" + Readable(value) + "\n";
  }
  return text;
}

}  // namespace zentpost::test
