#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "device/frame.h"
#include "device/osc_codec.h"

namespace corvalint::device {

// One frame as it came, header included.
struct ReceivedFrame {
  std::uint32_t stream = 0;  // which connection, the first is 1
  std::uint64_t offset = 0;  // of the header in that stream
  std::int64_t arrival = 0;  // RawNow() when its last bytes were read
  Bytes bytes;
};

struct ReceivedMessage {
  std::uint32_t stream = 0;
  std::int64_t arrival = 0;  // RawNow()
  OscMessage message;
};

// Something the other side must never send.
struct Violation {
  std::uint32_t stream = 0;
  std::uint64_t offset = 0;  // of the frame concerned
  std::string what;
};

struct DeviceCounters {
  std::uint64_t streamsOpened = 0;
  std::uint64_t streamsClosed = 0;
  std::uint64_t bytesReceived = 0;
  std::uint64_t framesReceived = 0;
  std::uint64_t messagesReceived = 0;
  std::uint64_t violations = 0;
  std::uint64_t bytesSent = 0;     // taken by the kernel
  std::uint64_t framesSent = 0;    // of which the last byte is sent
  std::uint64_t bytesDropped = 0;  // queued, and the stream ended first
};

// All that a simulated device has received, for any thread to read and wait on. Readers may use it
// while the device writes it.
class DeviceRecord {
 public:
  using Duration = std::chrono::milliseconds;
  using Messages = std::deque<ReceivedMessage>;

  // Without `keepContent` only the counters and the violations are kept, for very long runs.
  explicit DeviceRecord(bool keepContent) : keep(keepContent) {}

  DeviceCounters Counters() const;
  std::vector<ReceivedFrame> Frames() const;
  std::vector<ReceivedMessage> AllMessages() const;
  // Those with exactly this address, in order.
  std::vector<ReceivedMessage> MessagesTo(std::string_view address) const;
  // At most the first 1000; the counter counts them all.
  std::vector<Violation> Violations() const;

  // Forgets frames, messages and violations. Only the counters stay.
  void Clear();

  // All waits give true as soon as the condition holds and false at the time-out, and check at
  // every arrival. The predicates are called under the record's lock: they must not call it.

  // `count` messages since the last Clear().
  bool WaitForMessages(std::uint64_t count, Duration timeout) const;
  // A condition on the messages kept.
  bool WaitFor(const std::function<bool(const Messages&)>& condition, Duration timeout) const;
  // A condition on the counters.
  bool WaitForCounters(const std::function<bool(const DeviceCounters&)>& condition,
                       Duration timeout) const;

  // Written by the device only.
  void AddReceived(std::uint64_t bytes, std::vector<ReceivedFrame> newFrames,
                   std::vector<ReceivedMessage> newMessages);
  void AddViolation(Violation violation);
  void AddSent(std::uint64_t bytes, std::uint64_t frameCount);
  void AddDropped(std::uint64_t bytes);
  void StreamOpened();
  void StreamClosed();

 private:
  const bool keep;
  mutable std::mutex mutex;
  mutable std::condition_variable changed;
  DeviceCounters counters;
  std::uint64_t messagesAtClear = 0;
  std::deque<ReceivedFrame> frames;
  Messages messages;
  std::vector<Violation> violations;
};

}  // namespace corvalint::device
