// A fake of a mail client's MAPI library, see fake_library.h: a fake mail client that looks into
// nothing.
#include <string>

#include "fake_mapi/client.h"
#include "testing/entry_points.h"

namespace zentpost {

fake_mapi::Client& fake_mapi::TheClient() {
  // Not made anew for each call, and gone with the library.
  static Client client;
  if (!client.is_inert) {
    client.is_inert = true;
    for (const test::EntryPoint& entry : test::kEntryPoints) {
      client.Plan(
          {.call = entry.name, .from = true, .code = static_cast<std::int32_t>(entry.result)});
    }
  }
  return client;
}

extern "C" const char* FakeLibraryLastCall() {
  static std::string told;
  static std::size_t seen = 0;
  const std::vector<std::string> calls = fake_mapi::TheClient().Calls();
  told = calls.size() == seen ? "" : calls.back();
  seen = calls.size();
  return told.c_str();
}

}  // namespace zentpost
