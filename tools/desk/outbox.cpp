#include "outbox.h"

#include "text.h"

namespace corvalint::desk {

Outbox& Outbox::Get() {
  // Never destroyed: driver threads may still report while the process ends.
  static Outbox* outbox = new Outbox;
  return *outbox;
}

void Outbox::SetConnected(bool now) {
  const std::lock_guard hold(lock);
  connected = now;
  if (!now) pending.clear();
  filled.notify_all();
}

void Outbox::Line(std::string_view line) {
  const std::lock_guard hold(lock);
  if (!connected) return;
  pending += line;
  pending += '\n';
  filled.notify_one();
}

void Outbox::Event(std::string_view text) { Line("! " + std::string(text)); }

void Outbox::Violation(std::string_view text) {
  {
    const std::lock_guard hold(lock);
    ++violations;
  }
  Event("violation " + std::string(text));
}

std::uint64_t Outbox::Violations() {
  const std::lock_guard hold(lock);
  return violations;
}

void Outbox::Recorded(char kind, int id, std::int64_t when, const std::uint8_t* data,
                      std::size_t length) {
  const std::lock_guard hold(lock);
  if (!connected || !streaming) return;
  const bool wasEmpty = pending.empty();
  pending += kind;
  pending += ' ';
  pending += std::to_string(id);
  pending += ' ';
  pending += std::to_string(when);
  pending += ' ';
  AppendHex(pending, data, length);
  pending += '\n';
  if (wasEmpty) filled.notify_one();
}

void Outbox::SetStreaming(bool now) {
  const std::lock_guard hold(lock);
  streaming = now;
}

bool Outbox::Take(std::string& out) {
  std::unique_lock hold(lock);
  filled.wait(hold, [this] { return !pending.empty() || !connected; });
  if (!connected) return false;
  out.clear();
  out.swap(pending);
  return true;
}

}  // namespace corvalint::desk
