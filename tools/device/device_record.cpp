#include "device/device_record.h"

#include <algorithm>
#include <utility>

namespace corvalint::device {
namespace {

constexpr std::size_t kViolationsKept = 1000;

// Times in the past or too far ahead for the clock's range are no reason to misbehave.
std::chrono::steady_clock::time_point Deadline(DeviceRecord::Duration timeout) {
  return std::chrono::steady_clock::now() +
         std::min<DeviceRecord::Duration>(timeout, std::chrono::hours(24 * 365));
}

}  // namespace

DeviceCounters DeviceRecord::Counters() const {
  const std::lock_guard lock(mutex);
  return counters;
}

std::vector<ReceivedFrame> DeviceRecord::Frames() const {
  const std::lock_guard lock(mutex);
  return {frames.begin(), frames.end()};
}

std::vector<ReceivedMessage> DeviceRecord::AllMessages() const {
  const std::lock_guard lock(mutex);
  return {messages.begin(), messages.end()};
}

std::vector<ReceivedMessage> DeviceRecord::MessagesTo(std::string_view address) const {
  const std::lock_guard lock(mutex);
  std::vector<ReceivedMessage> found;
  for (const ReceivedMessage& received : messages) {
    if (received.message.address == address) found.push_back(received);
  }
  return found;
}

std::vector<Violation> DeviceRecord::Violations() const {
  const std::lock_guard lock(mutex);
  return violations;
}

void DeviceRecord::Clear() {
  const std::lock_guard lock(mutex);
  frames.clear();
  messages.clear();
  violations.clear();
  messagesAtClear = counters.messagesReceived;
}

bool DeviceRecord::WaitForMessages(std::uint64_t count, Duration timeout) const {
  std::unique_lock lock(mutex);
  return changed.wait_until(lock, Deadline(timeout),
                            [&] { return counters.messagesReceived - messagesAtClear >= count; });
}

bool DeviceRecord::WaitFor(const std::function<bool(const Messages&)>& condition,
                           Duration timeout) const {
  std::unique_lock lock(mutex);
  return changed.wait_until(lock, Deadline(timeout), [&] { return condition(messages); });
}

bool DeviceRecord::WaitForCounters(const std::function<bool(const DeviceCounters&)>& condition,
                                   Duration timeout) const {
  std::unique_lock lock(mutex);
  return changed.wait_until(lock, Deadline(timeout), [&] { return condition(counters); });
}

void DeviceRecord::AddReceived(std::uint64_t bytes, std::vector<ReceivedFrame> newFrames,
                               std::vector<ReceivedMessage> newMessages) {
  {
    const std::lock_guard lock(mutex);
    counters.bytesReceived += bytes;
    counters.framesReceived += newFrames.size();
    counters.messagesReceived += newMessages.size();
    if (keep) {
      for (ReceivedFrame& frame : newFrames) frames.push_back(std::move(frame));
      for (ReceivedMessage& message : newMessages) messages.push_back(std::move(message));
    }
  }
  changed.notify_all();
}

void DeviceRecord::AddViolation(Violation violation) {
  {
    const std::lock_guard lock(mutex);
    ++counters.violations;
    if (violations.size() < kViolationsKept) violations.push_back(std::move(violation));
  }
  changed.notify_all();
}

void DeviceRecord::AddSent(std::uint64_t bytes, std::uint64_t frameCount) {
  {
    const std::lock_guard lock(mutex);
    counters.bytesSent += bytes;
    counters.framesSent += frameCount;
  }
  changed.notify_all();
}

void DeviceRecord::AddDropped(std::uint64_t bytes) {
  {
    const std::lock_guard lock(mutex);
    counters.bytesDropped += bytes;
  }
  changed.notify_all();
}

void DeviceRecord::StreamOpened() {
  {
    const std::lock_guard lock(mutex);
    ++counters.streamsOpened;
  }
  changed.notify_all();
}

void DeviceRecord::StreamClosed() {
  {
    const std::lock_guard lock(mutex);
    ++counters.streamsClosed;
  }
  changed.notify_all();
}

}  // namespace corvalint::device
