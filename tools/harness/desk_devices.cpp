// The iOS devices of the desk, and the notifications about them.
#include "harness/desk_control.h"

namespace corvalint::harness {

namespace {

std::string NumberList(const std::vector<std::uint32_t>& numbers) {
  std::string text;
  for (const std::uint32_t number : numbers) {
    if (!text.empty()) text += ',';
    text += std::to_string(number);
  }
  return text;
}

}  // namespace

void DeskControl::SetDevice(const std::string& key, const DeviceSetup& setup) {
  std::string text = "device " + key;
  if (setup.withoutIdentifier) text += " udid=-";
  if (setup.identifier) text += " udid=" + HexOf(*setup.identifier);
  if (setup.displayName) text += " name=" + HexOf(*setup.displayName);
  if (setup.connectionId) text += " id=" + std::to_string(*setup.connectionId);
  if (setup.tcpPort) text += " tcp=" + std::to_string(*setup.tcpPort);
  if (!setup.connectAnswers.empty()) text += " connect=" + NumberList(setup.connectAnswers);
  if (!setup.streamAnswers.empty()) text += " mux=" + NumberList(setup.streamAnswers);
  if (setup.productWord) text += " product=" + std::to_string(*setup.productWord);
  Send(text);
}

void DeskControl::Attach(const std::string& key, bool freshRecord) {
  Send("attach " + key + (freshRecord ? " fresh=1" : ""));
  const std::lock_guard hold(lock);
  ++notificationsAsked;
}

void DeskControl::Detach(const std::string& key) {
  Send("detach " + key);
  const std::lock_guard hold(lock);
  ++notificationsAsked;
}

void DeskControl::Notify(const std::string& key, std::uint32_t kind) {
  Send("notify " + key + " " + std::to_string(kind));
  const std::lock_guard hold(lock);
  ++notificationsAsked;
}

void DeskControl::Restore(const std::string& which) {
  Send("restore " + which);
  const std::lock_guard hold(lock);
  ++notificationsAsked;
}

bool DeskControl::WaitForNotifications(std::chrono::milliseconds limit) {
  return WaitUntil([&] { return notificationsDone >= notificationsAsked; }, limit);
}

}  // namespace corvalint::harness
