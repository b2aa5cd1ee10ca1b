#include "tools/sandbox_mapi/mailbox.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <system_error>
#include <utility>

#include "fake_mapi/codes.h"
#include "tools/sandbox_mapi/eml.h"
#include "tools/sandbox_mapi/names.h"
#include "tools/sandbox_mapi/system.h"
#include "tools/support/files.h"
#include "tools/support/text.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

namespace fs = std::filesystem;

cJSON* Json(const std::string& text) {
  return cJSON_CreateString(text.c_str());
}

// Without the members that are null.
cJSON* Json(std::initializer_list<std::pair<const char*, cJSON*>> members) {
  cJSON* const object = cJSON_CreateObject();
  for (const auto& [name, value] : members) {
    cJSON_AddItemToObject(object, name, value);
  }
  return object;
}

template <class Items, class Of>
cJSON* Array(const Items& items, const Of& of) {
  cJSON* const array = cJSON_CreateArray();
  for (const auto& item : items) {
    cJSON_AddItemToArray(array, of(item));
  }
  return array;
}

cJSON* OneOffJson(const std::optional<OneOff>& one_off) {
  return one_off ? Json({{"Name", Json(support::Utf8(one_off->name))},
                         {"AddressType", Json(support::Utf8(one_off->address_type))},
                         {"Address", Json(support::Utf8(one_off->address))}})
                 : nullptr;
}

std::string EntryText(const Entry& entry) {
  const char* const kind = entry.kind == 'F'   ? "folder "
                           : entry.kind == 'M' ? "message "
                                               : "store ";
  return kind + entry.name;
}

cJSON* BinaryJson(const Property& property, const fs::path& file_folder) {
  const std::optional<Spool>& spool = property.spool;
  const std::string& bytes = property.bytes;
  const std::uint64_t size = spool ? spool->size : bytes.size();
  const std::optional<Entry> entry = ReadEntryId(bytes);
  const bool has_file = spool && !file_folder.empty();
  return Json({{"Size", cJSON_CreateNumber(static_cast<double>(size))},
               {"Hex", spool ? nullptr : Json(support::HexBytes(bytes))},
               {"File", has_file ? Json(support::PathText(
                                       support::Path(spool->file).lexically_relative(file_folder)))
                                 : nullptr},
               {"OneOff", OneOffJson(ReadOneOff(bytes))},
               {"Entry", entry ? Json(EntryText(*entry)) : nullptr}});
}

cJSON* ValueJson(const Property& property, const fs::path& file_folder) {
  switch (TypeOf(property.tag)) {
    case kBoolean:
      return cJSON_CreateBool(property.number != 0);
    case kError:
      return Json(support::Hex(static_cast<std::uint32_t>(property.number)));
    case kString8:
    case kUnicode:
      return Json(support::Utf8(property.Text()));
    case kBinary:
      return BinaryJson(property, file_folder);
    default:
      return cJSON_CreateNumber(static_cast<double>(property.number));
  }
}

cJSON* PropertiesJson(const Properties& properties, const fs::path& file_folder) {
  return Array(properties, [&](const Property& property) {
    const std::string name = TagName(property.tag);
    return Json({{"Tag", Json(support::Hex(property.tag))},
                 {"Name", name.empty() ? nullptr : Json(name)},
                 {"Type", Json(TypeName(property.tag))},
                 {"Value", ValueJson(property, file_folder)}});
  });
}

cJSON* RecipientJson(const Properties& recipient, const fs::path& file_folder) {
  const std::u16string address = recipient.Text(kIdEmailAddress);
  const Property* const entry_id = recipient.Find(kIdEntryId);
  cJSON* const one_off = entry_id == nullptr ? nullptr : OneOffJson(ReadOneOff(entry_id->bytes));
  return Json({{"AddressSpec", Json(AddressSpec(recipient.Text(kIdAddressType), address))},
               {"OneOff", one_off == nullptr ? cJSON_CreateNull() : one_off},
               {"Properties", PropertiesJson(recipient, file_folder)}});
}

cJSON* AttachmentJson(const Attachment& attachment, const fs::path& file_folder) {
  return Json({{"Number", cJSON_CreateNumber(attachment.number)},
               {"Flags", Json(support::Hex(attachment.create_flags))},
               {"Saved", cJSON_CreateBool(attachment.saved)},
               {"Properties", PropertiesJson(attachment.properties, file_folder)}});
}

// The largest number at the start of a file's name.
unsigned long LargestNumber(const fs::path& folder) {
  unsigned long largest = 0;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = support::PathText(entry->path().stem());
    if (name.size() < 9 && name.find_first_not_of("0123456789") == name.npos) {
      largest = std::max(largest, std::strtoul(name.c_str(), nullptr, 10));
    }
  }
  return largest;
}

}  // namespace

std::string MessageJson(const Message& message, std::string_view state,
                        const fs::path& file_folder) {
  const auto with_folder = [&](auto* of) {
    return [&file_folder, of](const auto& item) { return of(item, file_folder); };
  };
  const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> root(
      Json({{"State", Json(std::string(state))},
            {"Calls", Array(message.flags, [](const std::string& call) { return Json(call); })},
            {"Properties", PropertiesJson(message.properties, file_folder)},
            {"Recipients", Array(message.recipients, with_folder(RecipientJson))},
            {"Attachments", Array(message.attachments, with_folder(AttachmentJson))}}),
      cJSON_Delete);
  const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_Print(root.get()), cJSON_free);
  return text == nullptr ? std::string() : std::string(text.get()) + '\n';
}

Mailbox::Mailbox(fs::path folder, std::u16string profile_name)
    : folder_(std::move(folder)), profile_name_(std::move(profile_name)) {}

fs::path Mailbox::StoreFolder(std::string_view name) const {
  return folder_ / "Store" / name;
}

fs::path Mailbox::SpoolFolder(const Message& message) const {
  return StoreFolder(kOutbox) / message.name;
}

std::int32_t Mailbox::Start() {
  std::error_code error;
  for (const fs::path& folder :
       {StoreFolder(kOutbox), StoreFolder(kSentItems), folder_ / "Drafts", folder_ / "Profiles"}) {
    fs::create_directories(folder, error);
    if (error) {
      return kDiskError;
    }
  }
  // For the eye alone, and not every name can be a file's.
  std::ofstream(folder_ / "Profiles" / support::Path(support::Utf8(profile_name_)), std::ios::app)
      .close();
  return kOk;
}

bool Mailbox::Create(Message& message) {
  unsigned long number = 0;
  for (const fs::path& folder :
       {StoreFolder(kOutbox), StoreFolder(kSentItems), folder_ / "Drafts"}) {
    number = std::max(number, LargestNumber(folder));
  }
  for (int attempt = 0; attempt < 10000; ++attempt) {
    std::string digits = std::to_string(++number);
    digits.insert(0, digits.size() < 4 ? 4 - digits.size() : 0, '0');
    std::error_code error;
    // Of several processes only one makes the folder.
    if (!fs::create_directory(StoreFolder(kOutbox) / digits, error)) {
      // Also an error when another process takes its folder away at this moment.
      std::error_code ignored;
      if (error && !fs::is_directory(StoreFolder(kOutbox), ignored)) {
        return false;
      }
      continue;
    }
    // Another one may have sent a message of this number since the folders were looked through.
    if (fs::exists(StoreFolder(kSentItems) / (digits + ".json"), error) ||
        fs::exists(StoreFolder(kOutbox) / (digits + ".json"), error)) {
      fs::remove(StoreFolder(kOutbox) / digits, error);
      continue;
    }
    message.name = digits;
    message.entry_id = EntryId({'M', digits});
    return true;
  }
  return false;
}

bool Mailbox::KeepDocument(const Message& message, const Attachment& attachment,
                           std::string_view bytes, Property& value) {
  const std::string name = "attachment-" + std::to_string(attachment.number) + ".bin";
  const fs::path file = SpoolFolder(message) / name;
  value.spool = Spool{support::PathText(file), bytes.size()};
  return support::WriteBytes(file, bytes);
}

bool Mailbox::Save(const Message& message) {
  const fs::path folder = StoreFolder(kOutbox);
  return support::WriteBytes(folder / (message.name + ".json"),
                             MessageJson(message, "saved", folder));
}

bool Mailbox::WriteBoth(const Message& message, const fs::path& folder, std::string_view state,
                        bool is_unsent) {
  const auto now = std::chrono::system_clock::now();
  const EmlOptions options{std::chrono::floor<std::chrono::seconds>(now),
                           message.name + '.' + std::to_string(now.time_since_epoch().count()) +
                               '.' + std::to_string(ProcessId()),
                           is_unsent};
  // Whoever waits for the message must not see a part of it.
  const fs::path unfinished = folder / (message.name + ".part");
  std::ofstream file(unfinished, std::ios::binary | std::ios::trunc);
  bool is_whole = WriteEml(message, options, file);
  file.close();
  is_whole =
      is_whole && file &&
      support::WriteBytes(folder / (message.name + ".json"), MessageJson(message, state, {}));
  std::error_code error;
  if (is_whole) {
    fs::rename(unfinished, folder / (message.name + ".eml"), error);
  } else {
    fs::remove(unfinished, error);
  }
  return is_whole && !error;
}

bool Mailbox::Send(const Message& message, bool stays_in_outbox) {
  if (!WriteBoth(message, StoreFolder(stays_in_outbox ? kOutbox : kSentItems), "submitted",
                 false)) {
    return false;
  }
  std::error_code ignored;
  if (!stays_in_outbox) {
    fs::remove(StoreFolder(kOutbox) / (message.name + ".json"), ignored);
  }
  fs::remove_all(SpoolFolder(message), ignored);
  return true;
}

bool Mailbox::Show(const Message& message) {
  return WriteBoth(message, folder_ / "Drafts", "draft", true);
}

void Mailbox::Discard(const Message& message) {
  std::error_code ignored;
  fs::remove_all(SpoolFolder(message), ignored);
}

}  // namespace zentpost::fake_mapi::sandbox
