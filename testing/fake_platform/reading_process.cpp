#include "platform/memory_failure.h"
#include "platform/reading.h"
#include "testing/fake_platform/state.h"

namespace platform::reading {

Status DescribeProcess(Process& process) {
  return UnlessMemoryRunsOut([&] {
    process = fake::LockedPlatform()->process;
    return kSuccess;
  });
}

Status FindComponent(const std::u16string& category, const std::u16string& qualifier,
                     std::u16string& path) {
  path.clear();
  fake::LockedPlatform locked;
  const auto found = locked->components.find({category, qualifier});
  if (found == locked->components.end()) {
    return kFileNotFound;
  }
  path = found->second.value_or(u"");
  return found->second ? kSuccess : kNotSupported;
}

Status TryToConnect(std::uint16_t port) {
  fake::LockedPlatform locked;
  const auto found = locked->listeners.find(port);
  if (found == locked->listeners.end() || found->second.connections_left == 0) {
    return kSocketRefused;
  }
  locked->connections.push_back({port, found->second.peer, 0, true});
  locked->sent.emplace_back();
  return kSuccess;
}

Status FindListener(std::uint16_t port, Listener& listener) {
  fake::LockedPlatform locked;
  if (const auto told = locked->told_listeners.find(port); told != locked->told_listeners.end()) {
    listener = told->second;
    return kSuccess;
  }
  const auto found = locked->listeners.find(port);
  const bool listens = found != locked->listeners.end() && found->second.connections_left > 0;
  listener = Listener();
  listener.state = listens ? Listener::State::kListens : Listener::State::kNobody;
  return kSuccess;
}

}  // namespace platform::reading
