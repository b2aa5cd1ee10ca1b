#include "tools/sandbox_mapi/library.h"

#include <chrono>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "fake_mapi/codes.h"
#include "tools/sandbox_mapi/config.h"
#include "tools/sandbox_mapi/eml.h"
#include "tools/sandbox_mapi/mailbox.h"
#include "tools/sandbox_mapi/names.h"
#include "tools/sandbox_mapi/registration.h"
#include "tools/sandbox_mapi/system.h"
#include "tools/support/files.h"
#include "tools/support/text.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

namespace fs = std::filesystem;

constexpr char kStoreName[] = "Sandbox";

fs::path ChosenFolder() {
  if (const auto folder = EnvironmentVariable("SANDBOX_MAPI_FOLDER")) {
    return support::Path(*folder);
  }
  if (const auto folder = RegisteredFolder()) {
    return support::Path(*folder);
  }
  return ModulePath().parent_path() / "Sandbox MAPI";
}

// What the client is, as `config` has it.
void Prepare(Client& client, const Config& config) {
  const auto flag = [](std::uint32_t id, bool is_set) {
    return Number(Tag(id, kBoolean), is_set ? 1 : 0);
  };
  const auto entry = [](std::uint32_t id, char kind, const char* name) {
    return Bytes(Tag(id, kBinary), EntryId({kind, name}));
  };
  const Property store_name = Text(Tag(kIdDisplayName, kUnicode), support::Utf16(kStoreName));
  const Property profile_name = Text(Tag(kIdDisplayName, kUnicode), config.profile_name);
  client.profiles = {{flag(kIdDefaultProfile, config.default_profile), profile_name}};
  client.stores = {{flag(kIdDefaultStore, config.default_store), entry(kIdEntryId, 'S', kStoreName),
                    store_name}};
  client.store_values = {store_name, entry(kIdEntryId, 'S', kStoreName),
                         flag(kIdDefaultStore, config.default_store)};
  if (config.outbox) {
    client.store_values.push_back(entry(kIdOutboxEntryId, 'F', kOutbox));
  }
  if (config.sent_items) {
    client.store_values.push_back(entry(kIdSentItemsEntryId, 'F', kSentItems));
  }
  client.has_narrow_token = true;  // as the headers declare it that mail clients are built with
  client.form_answer = config.form_answer;
  client.has_shutdown = config.client_shutdown;
  client.failures_leave_garbage = config.garbage;
  for (const Behaviour& failure : config.failures) {
    client.Plan(failure);
  }
}

}  // namespace

Config ReadOrders(const fs::path& folder, const std::optional<std::string>& orders) {
  const bool are_told = orders && orders->find_first_not_of(" \t\r\n") == orders->find('{');
  const fs::path path = orders ? support::Path(*orders) : folder / "sandbox.json";
  std::error_code ignored;
  if (!orders && !fs::exists(path, ignored)) {
    return Config();
  }
  const std::optional<std::string> text = are_told ? orders : support::ReadBytes(path);
  try {
    return text ? ParseConfig(*text) : throw std::runtime_error("cannot be read");
  } catch (const std::runtime_error& problem) {
    throw std::runtime_error((are_told ? "SANDBOX_MAPI_CONFIG" : support::PathText(path)) + ": " +
                             problem.what());
  }
}

Library::Library() : Library(ChosenFolder(), EnvironmentVariable("SANDBOX_MAPI_CONFIG")) {}

Library::Library(fs::path folder, const std::optional<std::string>& orders)
    : folder_(std::move(folder)),
      unfinished_report_(folder_ / ("report-" + std::to_string(ProcessId()) + ".unfinished.txt")) {
  Config config;
  std::string error;
  try {
    config = ReadOrders(folder_, orders);
  } catch (const std::runtime_error& problem) {
    error = problem.what();
  }
  client_ = std::make_unique<Client>(std::make_unique<Mailbox>(folder_, config.profile_name));
  Prepare(*client_, config);
  if (!error.empty()) {
    client_->AddProblem(error);
    client_->Plan({.call = "MAPIInitialize", .from = true, .code = kUnconfigured});
  }
  client_->SetHook(*this);
  std::error_code ignored;
  fs::create_directories(folder_, ignored);
}

Library::~Library() {
  const std::string time =
      MailDate(std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()));
  std::string text = "process " + std::to_string(ProcessId()) + " (" +
                     support::PathText(ProgramPath().filename()) + "), " + time + "\ncalls:\n";
  for (const RecordedCall& call : client_->RecordedCalls()) {
    text += "  " + call.Line() + '\n';
  }
  text += "findings:\n";
  const std::vector<Finding> findings = client_->Findings();
  for (const Finding& finding : findings) {
    text += "  " + finding.text + " (call " + std::to_string(finding.call) + ")\n";
  }
  text += "result: " + SumOf(findings) + "\n\n";
  // In one piece, since other processes may end at the same time.
  std::ofstream file(folder_ / "report.txt", std::ios::binary | std::ios::app);
  file.write(text.data(), static_cast<std::streamsize>(text.size()));
  file.close();
  if (file) {
    std::error_code ignored;
    fs::remove(unfinished_report_, ignored);
  }
}

void Library::CallHasResult(const RecordedCall& call) {
  std::ofstream(unfinished_report_, std::ios::binary | std::ios::app) << call.Line() << '\n';
}

}  // namespace zentpost::fake_mapi::sandbox
