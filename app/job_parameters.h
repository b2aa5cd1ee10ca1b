// What is known of one fax job: two ordered lists of named texts, copied by value from stage to
// stage. Pure data; knows nothing of files, routes or the system. Whatever copies a text throws
// std::bad_alloc when memory runs out.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zentpost {

// An ordered list of (name, value) pairs. A name may occur several times; entries keep the order in
// which they were added, and a lookup sees the first.
class ParameterList {
 public:
  using Entry = std::pair<std::u16string, std::u16string>;

  // Appends; never replaces.
  void Add(std::u16string name, std::u16string value);

  // A copy of the first entry whose name equals `name` exactly, unit for unit; two empty texts when
  // there is none or `name` is empty.
  [[nodiscard]] Entry Find(std::u16string_view name) const;

  // The value of that entry in its place, or an empty text. Valid until the list changes.
  [[nodiscard]] const std::u16string& Value(std::u16string_view name) const noexcept;

  // True when Find would find an entry.
  [[nodiscard]] bool Contains(std::u16string_view name) const noexcept;

  void Clear();

  // All entries in their order.
  [[nodiscard]] const std::vector<Entry>& Entries() const { return entries_; }

 private:
  [[nodiscard]] const Entry* First(std::u16string_view name) const noexcept;

  std::vector<Entry> entries_;
};

// The names of arguments. An option of the command line has an effect where its name is looked up.
namespace argument {
inline constexpr char16_t kJobFile[] = u"jobname";              // its path
inline constexpr char16_t kDocument[] = u"filename";            // its path
inline constexpr char16_t kDocumentName[] = u"attdisplayname";  // the attachment's display name
inline constexpr char16_t kFaxCommand[] = u"faxcommand";        // as it stands
inline constexpr const char16_t* kLookedUp[] = {kJobFile, kDocument, kDocumentName};
}  // namespace argument

struct JobParameters {
  // Those above, and the command line's options under lower-case names.
  ParameterList arguments;

  // "+FAX" (the fax number) and the one-letter fields B, C, E, K, N, O, P, S, U, Z.
  ParameterList faxFields;

  // The first command-line argument named a file that parsed as a JSON job file.
  bool fromJobFile = false;
};

// True when a fax field that switches something off by "-" is there and is anything but "-", the
// empty text included.
[[nodiscard]] bool IsPresentAndNotMinus(const ParameterList& fields,
                                        std::u16string_view name) noexcept;

}  // namespace zentpost
