#include "tools/sandbox_mapi/eml.h"

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <fstream>
#include <iomanip>
#include <locale>
#include <map>
#include <sstream>
#include <vector>

#include "tools/support/files.h"
#include "tools/support/text.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

constexpr std::size_t kLineLength = 76;   // RFC 2047 allows no more beside an encoded word.
constexpr std::size_t kEncodedWord = 75;  // RFC 2047 allows no more.
// These make 40 characters of base64: such a word fits on the line of every header's name.
constexpr std::size_t kEncodedBytes = 30;
constexpr std::size_t kBase64Line = 57;  // Bytes that make 76 characters, as RFC 2045 allows.
constexpr std::size_t kLocalPartLimit = 240;
constexpr std::string_view kCrLf = "\r\n";
constexpr std::string_view kEncodedStart = "=?UTF-8?B?";
constexpr std::string_view kEncodedEnd = "?=";

// Published: values of PR_RECIPIENT_TYPE.
constexpr std::int64_t kTo = 1;
constexpr std::int64_t kCc = 2;
constexpr std::int64_t kBcc = 3;

bool IsAlphanumeric(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

bool IsAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

void AppendBase64(std::string_view bytes, std::string& result) {
  static constexpr char kDigits[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::uint32_t bits = 0;
  int count = 0;  // of those that wait
  for (const char byte : bytes) {
    bits = bits << 8 | static_cast<unsigned char>(byte);
    for (count += 8; count >= 6; count -= 6) {
      result += kDigits[bits >> (count - 6) & 63];
    }
  }
  if (count > 0) {
    result += kDigits[bits << (6 - count) & 63];
  }
  result.append((3 - bytes.size() % 3) % 3, '=');
}

std::string WithoutControls(std::u16string_view text) {
  std::string result = support::Utf8(text);
  for (char& c : result) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
      c = ' ';
    }
  }
  return result;
}

std::vector<std::string> EncodedWords(std::string_view utf8) {
  static_assert(kEncodedStart.size() + kEncodedBytes / 3 * 4 + kEncodedEnd.size() <= kEncodedWord);
  std::vector<std::string> words;
  while (!utf8.empty()) {
    std::size_t length = std::min(kEncodedBytes, utf8.size());
    // No character is torn apart.
    while (length < utf8.size() && (utf8[length] & 0xC0) == 0x80) {
      --length;
    }
    std::string& word = words.emplace_back(kEncodedStart);
    AppendBase64(utf8.substr(0, length), word);
    word += kEncodedEnd;
    utf8.remove_prefix(length);
  }
  return words;
}

// A header of words, each on the line before as long as there is space.
std::string Fold(std::string_view name, const std::vector<std::string>& words) {
  std::string result = std::string(name) + ":";
  std::size_t column = result.size();
  for (const std::string& word : words) {
    if (column + 1 + word.size() > kLineLength && column > name.size() + 1) {
      result += kCrLf;
      column = 0;
    }
    result += ' ';
    result += word;
    column += 1 + word.size();
  }
  result += kCrLf;
  return result;
}

std::vector<std::string> Words(std::string_view text) {
  std::vector<std::string> words;
  for (std::size_t start = 0; start <= text.size();) {
    const std::size_t end = std::min(text.find(' ', start), text.size());
    words.emplace_back(text.substr(start, end - start));
    start = end + 1;
  }
  return words;
}

// Whether a text can stand in a header as it is: ASCII whose blanks survive folding, that cannot be
// taken for an encoded word, and whose words fit on a line beside a header's name.
bool IsPlain(std::string_view text) {
  const std::vector<std::string> words = Words(text);
  return IsAscii(text) && text.find("=?") == text.npos &&
         std::all_of(words.begin(), words.end(), [](const std::string& word) {
           return !word.empty() && word.size() <= kLineLength - 20;
         });
}

// A name before an address: in quotes where that will do.
std::vector<std::string> DisplayName(std::u16string_view name) {
  const std::string text = WithoutControls(name);
  if (!IsPlain(text) || text.size() > 60) {
    return EncodedWords(text);
  }
  return {support::Quoted(text)};
}

std::string AddressHeader(std::string_view name, const std::vector<Properties>& recipients,
                          std::int64_t type) {
  std::vector<std::string> words;
  for (const Properties& recipient : recipients) {
    if (recipient.Number(kIdRecipientType, kTo) != type) {
      continue;
    }
    if (!words.empty()) {
      words.back() += ',';
    }
    for (std::string& word : DisplayName(recipient.Text(kIdDisplayName))) {
      words.push_back(std::move(word));
    }
    words.push_back(
        '<' + AddressSpec(recipient.Text(kIdAddressType), recipient.Text(kIdEmailAddress)) + '>');
  }
  return words.empty() ? std::string() : Fold(name, words);
}

std::string Percent(std::string_view text, std::string_view allowed) {
  std::string result;
  for (const char c : text) {
    if (IsAlphanumeric(c) || allowed.find(c) != std::string_view::npos) {
      result += c;
    } else {
      result += '%' + support::HexBytes(std::string_view(&c, 1));
    }
  }
  return result;
}

// Whether an SMTP address can be written as it is: a dot-atom, "@", and a domain.
bool IsAddressSpec(std::string_view address) {
  const std::size_t at = address.find('@');
  if (at == std::string_view::npos || at == 0 || at > 64 || address.size() > 254) {
    return false;
  }
  const auto is_dot_atom = [](std::string_view text, std::string_view others) {
    return !text.empty() && text.front() != '.' && text.back() != '.' &&
           text.find("..") == std::string_view::npos &&
           std::all_of(text.begin(), text.end(), [others](char c) {
             return IsAlphanumeric(c) || c == '.' || others.find(c) != std::string_view::npos;
           });
  };
  return is_dot_atom(address.substr(0, at), "!#$%&'*+-/=?^_`{|}~") &&
         is_dot_atom(address.substr(at + 1), "-");
}

// A parameter of a header as RFC 2231 has it, each piece on a line of its own.
std::string Parameter(std::string_view name, std::u16string_view value) {
  const std::string text = WithoutControls(value);
  const std::string start = std::string(";") + std::string(kCrLf) + ' ' + std::string(name);
  if (IsAscii(text) && text.size() <= 60 && text.find("=?") == std::string::npos) {
    return start + "=" + support::Quoted(text);
  }
  constexpr std::size_t kPiece = 54;
  const std::string encoded = Percent(text, "-._");
  std::string result;
  std::string_view rest = encoded;
  for (int number = 0; !rest.empty(); ++number) {
    std::size_t length = std::min(kPiece, rest.size());
    // "%41" is not torn apart.
    if (const std::size_t percent = rest.rfind('%', length - 1);
        length < rest.size() && percent != rest.npos && percent + 2 >= length) {
      length = percent;
    }
    result += start + (encoded.size() > kPiece ? '*' + std::to_string(number) : "") +
              (number == 0 ? "*=UTF-8''" : "*=") + std::string(rest.substr(0, length));
    rest.remove_prefix(length);
  }
  return result;
}

std::string_view MediaType(std::string_view name) {
  static const std::map<std::string_view, std::string_view> types = {
      {".pdf", "application/pdf"}, {".tif", "image/tiff"}, {".tiff", "image/tiff"},
      {".png", "image/png"},       {".mp3", "audio/mpeg"}, {".wav", "audio/wav"},
      {".jpg", "image/jpeg"}};
  std::string extension(name.substr(std::min(name.rfind('.'), name.size())));
  for (char& c : extension) {
    c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  const auto found = types.find(extension);
  return found == types.end() ? "application/octet-stream" : found->second;
}

std::u16string AttachmentName(const Properties& properties) {
  for (const std::uint32_t id : {kIdAttachLongFilename, kIdAttachFilename, kIdDisplayName}) {
    if (std::u16string name = properties.Text(id); !name.empty()) {
      return name;
    }
  }
  return {};
}

void WriteBase64(std::string_view bytes, std::ostream& out) {
  // A document may be large: all lines in one piece, and not each by itself.
  std::string lines;
  lines.reserve(bytes.size() / kBase64Line * 78 + 80);
  for (std::size_t i = 0; i < bytes.size(); i += kBase64Line) {
    AppendBase64(bytes.substr(i, kBase64Line), lines);
    lines += kCrLf;
  }
  out << lines;
}

bool WriteData(const Property* data, std::ostream& out) {
  if (data == nullptr) {
    return true;
  }
  if (!data->spool) {
    WriteBase64(data->bytes, out);
    return true;
  }
  std::ifstream file(support::Path(data->spool->file), std::ios::binary);
  std::uint64_t left = data->spool->size;
  std::string piece(kBase64Line * 4096, '\0');  // A whole number of lines.
  while (left > 0) {
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(left, piece.size()));
    if (!file.read(piece.data(), static_cast<std::streamsize>(wanted))) {
      return false;
    }
    WriteBase64(std::string_view(piece).substr(0, wanted), out);
    left -= wanted;
  }
  return static_cast<bool>(file);
}

void WriteText(const Message& message, std::ostream& out) {
  out << "Content-Type: text/plain; charset=\"utf-8\"" << kCrLf
      << "Content-Transfer-Encoding: quoted-printable" << kCrLf << kCrLf
      << QuotedPrintable(message.properties.Text(kIdBody));
}

bool WriteAttachment(const Attachment& attachment, std::ostream& out) {
  const std::u16string name = AttachmentName(attachment.properties);
  out << "Content-Type: " << MediaType(support::Utf8(name)) << kCrLf
      << "Content-Transfer-Encoding: base64" << kCrLf << "Content-Disposition: attachment"
      << (name.empty() ? std::string() : Parameter("filename", name)) << kCrLf << kCrLf;
  return WriteData(attachment.properties.Find(kIdAttachData), out);
}

}  // namespace

std::string AddressSpec(std::u16string_view address_type, std::u16string_view address) {
  const std::string type = support::Utf8(address_type);
  std::string text = support::Utf8(address);
  if (type == "SMTP" && IsAddressSpec(text)) {
    return text;
  }
  constexpr std::string_view kAllowed = "+-_";
  std::string local =
      (type.empty() ? std::string() : Percent(type, kAllowed) + '=') + Percent(text, kAllowed);
  if (local.size() > kLocalPartLimit) {
    // No line may be longer than 998 characters, and an address cannot be folded. Another header
    // has it whole.
    local = "long=";
  } else if (local.empty()) {
    local = "empty=";
  }
  return local + (type.empty() ? "@untyped.sandbox.invalid" : "@typed.sandbox.invalid");
}

std::string TextHeader(std::string_view name, std::u16string_view value) {
  const std::string text = WithoutControls(value);
  return Fold(name, IsPlain(text) ? Words(text) : EncodedWords(text));
}

std::string QuotedPrintable(std::u16string_view text) {
  const std::string utf8 = support::Utf8(text);
  std::string result;
  std::size_t column = 0;
  const auto append = [&result, &column](std::string_view characters) {
    // Space for the "=" of a soft line break.
    if (column + characters.size() > 75) {
      result += "=\r\n";
      column = 0;
    }
    result += characters;
    column += characters.size();
  };
  for (std::size_t i = 0; i < utf8.size(); ++i) {
    const char c = utf8[i];
    if (c == '\r' || c == '\n') {
      if (c == '\r' && i + 1 < utf8.size() && utf8[i + 1] == '\n') {
        ++i;
      }
      result += kCrLf;
      column = 0;
      continue;
    }
    const bool is_blank = c == ' ' || c == '\t';
    const bool ends_line = i + 1 == utf8.size() || utf8[i + 1] == '\r' || utf8[i + 1] == '\n';
    // Mail transport may take blanks away at a line's end, and changes ".", "From " at its start.
    const bool is_risky = column == 0 && (c == '.' || c == 'F');
    if ((is_blank && !ends_line) || (c > ' ' && c < 0x7F && c != '=' && !is_risky)) {
      append(std::string_view(&c, 1));
    } else {
      append('=' + support::HexBytes(std::string_view(&c, 1)));
    }
  }
  return result;
}

std::string MailDate(std::chrono::sys_seconds time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << std::put_time(std::gmtime(&seconds), "%a, %d %b %Y %H:%M:%S +0000");
  return text.str();
}

bool WriteEml(const Message& message, const EmlOptions& options, std::ostream& out) {
  const std::u16string sender = message.properties.Text(kIdSentRepresentingName);
  std::vector<std::string> from = DisplayName(sender.empty() ? u"Sandbox User" : sender);
  from.emplace_back("<sender@sandbox.invalid>");
  out << Fold("From", from);
  const std::string to = AddressHeader("To", message.recipients, kTo);
  if (message.recipients.empty() && !options.is_unsent) {
    out << "To: undisclosed-recipients:;" << kCrLf;
  }
  out << to << AddressHeader("Cc", message.recipients, kCc)
      << AddressHeader("Bcc", message.recipients, kBcc);
  if (const Property* const subject = message.properties.Find(kIdSubject)) {
    out << TextHeader("Subject", subject->Text());
  }
  out << "Date: " << MailDate(options.date) << kCrLf << "Message-ID: <" << options.unique
      << "@sandbox.invalid>" << kCrLf << "X-Mailer: sandbox_mapi" << kCrLf;
  for (const Properties& recipient : message.recipients) {
    out << TextHeader("X-Sandbox-Recipient",
                      recipient.Text(kIdAddressType) + u":" + recipient.Text(kIdEmailAddress));
  }
  if (options.is_unsent) {
    out << "X-Unsent: 1" << kCrLf;
  }
  out << "MIME-Version: 1.0" << kCrLf;
  const bool has_parts = std::any_of(message.attachments.begin(), message.attachments.end(),
                                     [](const Attachment& attachment) { return attachment.saved; });
  if (!has_parts) {
    WriteText(message, out);
    return true;
  }
  // Neither quoted-printable nor base64 can hold these two characters side by side.
  const std::string boundary = "=_" + options.unique;
  out << "Content-Type: multipart/mixed; boundary=\"" << boundary << '"' << kCrLf << kCrLf << "--"
      << boundary << kCrLf;
  WriteText(message, out);
  out << kCrLf;  // Belongs to the boundary that follows.
  bool is_whole = true;
  for (const Attachment& attachment : message.attachments) {
    if (attachment.saved) {
      out << "--" << boundary << kCrLf;
      is_whole = WriteAttachment(attachment, out) && is_whole;
    }
  }
  out << "--" << boundary << "--" << kCrLf;
  return is_whole;
}

}  // namespace zentpost::fake_mapi::sandbox
