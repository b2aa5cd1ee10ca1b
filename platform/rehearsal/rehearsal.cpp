#include "platform/rehearsal/rehearsal.h"

#include <utility>

#include "platform/rehearsal/state.h"

namespace platform::rehearsal {
namespace {

std::unique_ptr<State> current;

}  // namespace

State& TheState() {
  if (current == nullptr) {
    current = std::make_unique<State>();
  }
  return *current;
}

void Begin(Answers answers) {
  current = std::make_unique<State>();
  TheState().answers = std::move(answers);
}

const Record& Recorded() {
  return TheState().record;
}

Status Took(Step::Kind kind, std::u16string_view what, std::uint64_t number, Status status) {
  TheState().record.steps.push_back({kind, std::u16string(what), number, status});
  return status;
}

}  // namespace platform::rehearsal
