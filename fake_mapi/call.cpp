#include "fake_mapi/call.h"

#include <utility>

namespace zentpost::fake_mapi {

Call::Call(const char* function)
    : client_(TheClient()), hook_(client_.Hook()), lock_(Inside().lock), name_(function) {
  Accounts().BeginCall(Inside().calls.size() + 1);
}

Call::Call(Object& object, const char* method)
    : client_(TheClient()), hook_(client_.Hook()), lock_(Inside().lock) {
  Accounts().BeginCall(Inside().calls.size() + 1);
  name_.append(object.interface_name).append("::").append(method);
  record_.object = object.ordinal;
  if (object.references == 0) {
    Breach("on the released " + object.name, kInvalidObject, FindingKind::kReleased);
  }
}

Call::~Call() {
  hook_.hook.CallHasResult(record_);
  if (record_.number != 0) {
    Inside().calls[record_.number - 1].result = std::move(record_.result);
  }
}

void Call::Record(Arguments arguments, bool can_fail) {
  record_.number = Inside().calls.size() + 1;
  record_.text = name_ + "(";
  for (const std::string& argument : arguments) {
    record_.text.append(&argument == arguments.begin() ? "" : ", ").append(argument);
  }
  record_.text += ")";
  Inside().calls.push_back(record_);
  const std::int32_t fault = hook_.hook.CallIsRecorded(record_.text, can_fail);
  for (Client::State::Planned& planned : Inside().planned) {
    Behaviour& behaviour = planned.behaviour;
    if (behaviour.call != name_ || (planned.was_met && !behaviour.from)) {
      continue;
    }
    if (!planned.was_met && behaviour.at > 1) {
      --behaviour.at;
      continue;
    }
    planned.was_met = true;
    switch (behaviour.kind) {
      case Behaviour::Kind::kFail:
        is_planned_ = true;
        result_ = behaviour.code;
        break;
      case Behaviour::Kind::kSucceed:
        success_ = behaviour.code;
        break;
      case Behaviour::Kind::kGiveNothing:
        gives_ = false;
        break;
    }
  }
  if (fault < 0) {
    is_planned_ = true;
    result_ = fault;
  }
}

void Call::Refuse(std::int32_t code) {
  if (Works()) {
    result_ = code;
  }
}

void Call::Breach(std::string_view what, std::int32_t code, FindingKind kind) {
  Accounts().Add(kind, name_ + ' ' + std::string(what));
  Refuse(code);
}

void Call::AllowFlags(std::uint32_t flags, std::uint32_t allowed) {
  if ((flags & ~allowed) != 0) {
    Breach("with unknown flags " + LowerHex(flags & ~allowed), kUnknownFlags);
  }
}

void Call::Need(const void* argument, const char* what) {
  if (argument == nullptr) {
    Breach(std::string("without ") + what);
  }
}

void Call::NeedBytes(std::uint32_t size, const void* bytes) {
  if (size > 0 && bytes == nullptr) {
    Breach("with " + std::to_string(size) + " bytes at null");
  }
}

Object* Call::NeedObject(const void* address, std::string_view interface_name) {
  Object* const object = Accounts().Find(address);
  if (object == nullptr || object->interface_name != interface_name) {
    Breach("with " + Accounts().NameOfObject(address) + " where an " + std::string(interface_name) +
           " has to be");
    return nullptr;
  }
  if (object->references == 0) {
    Breach("with the released " + object->name, kInvalidParameter, FindingKind::kReleased);
  }
  return object;
}

std::int32_t Call::Result() {
  if (Works()) {
    result_ = success_.value_or(own_success_);
  }
  record_.result = LowerHex(static_cast<std::uint32_t>(result_), 8);
  return result_;
}

std::uint32_t Call::Count(std::uint32_t count) {
  record_.result = std::to_string(count);
  return count;
}

}  // namespace zentpost::fake_mapi
