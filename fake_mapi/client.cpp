#include "fake_mapi/client.h"

#include <utility>

#include "fake_mapi/call.h"

namespace zentpost::fake_mapi {
namespace {

Client* latest = nullptr;

}  // namespace

bool CanHaveBehaviour(std::string_view call) {
  static constexpr std::string_view kCalls =
      " " FAKE_MAPI_FUNCTIONS_THAT_FAIL
      " IProfAdmin::QueryInterface IProfAdmin::GetProfileTable "
      "IMAPITable::QueryInterface "
      "IMAPIFormMgr::QueryInterface "
      "IMAPISession::QueryInterface IMAPISession::GetMsgStoresTable IMAPISession::OpenMsgStore "
      "IMAPISession::OpenAddressBook IMAPISession::Logoff IMAPISession::ShowForm "
      "IMAPISession::PrepareForm "
      "IMAPIClientShutdown::QueryInterface IMAPIClientShutdown::QueryFastShutdown "
      "IMAPIClientShutdown::NotifyProcessShutdown IMAPIClientShutdown::DoFastShutdown "
      "IAddrBook::QueryInterface IAddrBook::SaveChanges IAddrBook::GetProps IAddrBook::SetProps "
      "IAddrBook::CreateOneOff IAddrBook::ResolveName "
      "IMsgStore::QueryInterface IMsgStore::SaveChanges IMsgStore::GetProps IMsgStore::SetProps "
      "IMsgStore::OpenEntry "
      "IMAPIFolder::QueryInterface IMAPIFolder::SaveChanges IMAPIFolder::GetProps "
      "IMAPIFolder::SetProps IMAPIFolder::CreateMessage IMAPIFolder::GetMessageStatus "
      "IMessage::QueryInterface IMessage::SaveChanges IMessage::GetProps IMessage::SetProps "
      "IMessage::CreateAttach IMessage::ModifyRecipients IMessage::SubmitMessage "
      "IAttach::QueryInterface IAttach::SaveChanges IAttach::GetProps IAttach::SetProps ";
  return call.find(' ') == call.npos && kCalls.find(" " + std::string(call) + " ") != kCalls.npos;
}

std::string RecordedCall::Line() const {
  return std::to_string(number) + ' ' + (object == 0 ? "" : '#' + std::to_string(object) + ' ') +
         text + (result.empty() ? "" : " = " + result);
}

bool Storage::Create(Message& message) {
  message.name = "message " + std::to_string(++messages_);
  message.entry_id = message.name;
  return true;
}

bool Storage::KeepDocument(const Message& /*message*/, const Attachment& /*attachment*/,
                           std::string_view bytes, Property& value) {
  value.bytes = bytes;
  return true;
}

// --- the client ---

Client::Client(std::unique_ptr<Storage> storage)
    : state_(std::make_unique<State>(std::move(storage))) {
  latest = this;
}

Client::~Client() {
  if (latest == this) {
    latest = nullptr;
  }
}

Client* Client::Latest() {
  return latest;
}

void Client::Plan(Behaviour behaviour) {
  const std::lock_guard lock(state_->lock);
  state_->planned.push_back({std::move(behaviour)});
}

void Client::Answer(std::string_view call, std::size_t index, std::int32_t code) {
  Plan({.call = std::string(call),
        .at = index + 1,
        .kind = code < 0 ? Behaviour::Kind::kFail : Behaviour::Kind::kSucceed,
        .code = code});
}

void Client::GiveNothing(std::string_view call, std::size_t index) {
  Plan({.call = std::string(call), .at = index + 1, .kind = Behaviour::Kind::kGiveNothing});
}

std::vector<RecordedCall> Client::RecordedCalls() const {
  const std::lock_guard lock(state_->lock);
  return state_->calls;
}

std::vector<std::string> Client::Calls() const {
  std::vector<std::string> texts;
  for (RecordedCall& call : RecordedCalls()) {
    texts.push_back(std::move(call.text));
  }
  return texts;
}

std::vector<std::string> Client::CallsOf(std::string_view name) const {
  std::vector<std::string> calls = Calls();
  std::erase_if(calls, [start = std::string(name) + "("](const std::string& call) {
    return !call.starts_with(start);
  });
  return calls;
}

std::vector<Finding> Client::Findings() const {
  const std::lock_guard lock(state_->lock);
  return state_->accounting.Findings();
}

std::string Client::Accounts() const {
  std::string lines;
  for (const Finding& finding : Findings()) {
    lines += finding.text + "\n";
  }
  return lines;
}

std::vector<std::string> Client::SavedAttachments() const {
  const std::lock_guard lock(state_->lock);
  std::vector<std::string> documents;
  for (const auto& message : state_->messages) {
    for (const Attachment& attachment : message->attachments) {
      const Property* const document = attachment.properties.Find(kIdAttachData);
      if (attachment.saved) {
        documents.push_back(document != nullptr ? document->bytes : std::string());
      }
    }
  }
  return documents;
}

void Client::AddProblem(std::string text) {
  const std::lock_guard lock(state_->lock);
  state_->accounting.Add(FindingKind::kOther, std::move(text));
}

}  // namespace zentpost::fake_mapi
