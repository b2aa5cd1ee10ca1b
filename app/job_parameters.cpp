#include "app/job_parameters.h"

namespace zentpost {

void ParameterList::Add(std::u16string name, std::u16string value) {
  entries_.emplace_back(std::move(name), std::move(value));
}

ParameterList::Entry ParameterList::Find(std::u16string_view name) const {
  const Entry* entry = First(name);
  return entry == nullptr ? Entry() : *entry;
}

const std::u16string& ParameterList::Value(std::u16string_view name) const noexcept {
  static const std::u16string kNone;
  const Entry* entry = First(name);
  return entry == nullptr ? kNone : entry->second;
}

bool ParameterList::Contains(std::u16string_view name) const noexcept {
  return First(name) != nullptr;
}

void ParameterList::Clear() {
  entries_.clear();
}

const ParameterList::Entry* ParameterList::First(std::u16string_view name) const noexcept {
  if (name.empty()) {
    return nullptr;
  }
  for (const Entry& entry : entries_) {
    if (entry.first == name) {
      return &entry;
    }
  }
  return nullptr;
}

bool IsPresentAndNotMinus(const ParameterList& fields, std::u16string_view name) noexcept {
  return fields.Contains(name) && fields.Value(name) != u"-";
}

}  // namespace zentpost
