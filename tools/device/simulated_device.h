#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "device/descriptor.h"
#include "device/device_record.h"
#include "device/frame.h"
#include "device/outgoing.h"
#include "device/rate_limiter.h"
#include "device/rubbish.h"

namespace corvalint::device {

struct DeviceOptions {
  std::uint16_t port = 0;             // of 127.0.0.1; 0 = any free one
  std::chrono::nanoseconds clock{0};  // how far the device's clock is ahead of RawNow()
  int receiveBuffer = 0;              // bytes of the kernel's receive buffer; 0 = its default
  bool keepRecord = true;             // false: only counters and violations are kept
  FrameBatch greeting;                // sent first on every new stream

  // Both are called on the device's own thread with no lock held; they may send, and must not
  // wait for the device.
  std::function<void(const ReceivedMessage&)> onMessage;
  std::function<void(const std::string&)> onNotice;  // one line: connected, ended, violated, ...
};

// An iOS device as seen through its usbmux port: the companion app that listens for one stream at a
// time, and again when that has ended. It never sends anything by itself except its greeting.
//
// One thread of its own reads, accepts and closes. Every operation may be called on any thread and
// none waits unless its name says so. Operations that send give false, and do nothing, when no
// stream is open; what is queued when a stream ends is dropped and counted.
class SimulatedDevice {
 public:
  using Duration = std::chrono::milliseconds;

  // Listens at once. Throws std::system_error when the port cannot be had.
  explicit SimulatedDevice(DeviceOptions options = {});
  // Closes everything and ends the thread.
  ~SimulatedDevice();
  SimulatedDevice(const SimulatedDevice&) = delete;
  SimulatedDevice& operator=(const SimulatedDevice&) = delete;

  std::uint16_t Port() const { return port; }
  DeviceRecord& Record() { return record; }
  const DeviceRecord& Record() const { return record; }
  // Why the device's thread ended before its time; empty while all is well.
  std::string Failure() const;

  // Connection. Streams count from 1.
  bool Connected() const;
  // Until the `count`-th stream has been accepted, or ended.
  bool WaitForStream(std::uint64_t count, Duration timeout) const;
  bool WaitForStreamEnd(std::uint64_t count, Duration timeout) const;

  // The device's clock, nanoseconds.
  std::int64_t Now() const;
  void SetClock(std::chrono::nanoseconds aheadOfRawNow);

  // Messages of the companion app.
  bool AnnounceSource(std::string_view name, const EndpointId& id);
  bool WithdrawSource(std::string_view name, const EndpointId& id);
  bool AnnounceDestination(std::string_view name, const EndpointId& id);
  bool WithdrawDestination(std::string_view name, const EndpointId& id);
  // "/init_timing", "/update_timing" with the device's clock.
  bool InitTiming();
  bool UpdateTiming();
  // One "/init_timing" and then `updates` times "/update_timing", each after the reply to the one
  // before. False when not all have come within `timeout`, or when the stream ends. Not on the
  // device's own thread.
  bool AlignClockAndWait(int updates, Duration timeout);
  bool SendMidi(std::string_view name, const EndpointId& id, const Bytes& midi);
  bool SendMidi(std::string_view name, const EndpointId& id, std::int64_t time, const Bytes& midi);

  // Anything at all.
  bool SendPacket(const Bytes& packet);  // in a well-formed frame
  bool SendFrame(const FrameHeader& header, const Bytes& payload);
  bool SendRaw(const Bytes& bytes);
  bool SendBatch(const FrameBatch& batch);
  bool SendRubbish(std::uint64_t seed, std::uint64_t frames, RubbishKind kind);
  // The first `count` of the bytes, and then the cable is cut.
  bool SendAndCut(const Bytes& bytes, std::size_t count, CutHow how);
  void SetGreeting(FrameBatch batch);

  // Bytes queued that the kernel has not taken yet.
  std::uint64_t Queued() const;
  // Until nothing is queued; false at the time-out or when the stream ends first.
  bool WaitUntilSent(Duration timeout) const;

  // Manners. They hold for later streams too, until changed.
  // Each send carries at most so many bytes (0 = no bound). Together with a send rate the pieces
  // also leave apart in time.
  void SetPieceSize(std::size_t bytes);
  void SetSendRate(std::size_t bytesPerMillisecond);  // 0 = unlimited
  void SetReadRate(std::size_t bytesPerMillisecond);  // 0 = unlimited
  // Stops reading. A regular end of the stream goes unnoticed too until Resume().
  void Stall();
  // Stalls once so many more frames have been received.
  void StallAfterFrames(std::uint64_t frames);
  void Resume();

  // Cuts the cable now. What the peer has sent and was not read is lost.
  void Cut(CutHow how);
  // Cuts once so many more bytes have been read on the current or next stream.
  void CutAfterReceiving(std::uint64_t bytes, CutHow how);

  // Connection attempts are refused from now on; the port stays the device's own. An open stream
  // stays open. On return it is so.
  void RefuseConnections();
  // Throws std::system_error when listening fails.
  void AcceptConnections();

 private:
  struct PendingCut {
    CutHow how;
    bool afterAcknowledgement;
  };
  struct PollSet;

  // On any thread. Those named ...Locked want `mutex` held.
  bool Queue(Bytes bytes, std::uint64_t frames, std::optional<CutHow> cut = std::nullopt);
  void FlushLocked();

  // On the device's thread, without `mutex`.
  void Run();
  bool Turn();
  PollSet BuildPollSet();
  int PollTimeoutLocked(bool mayRead) const;
  void AcceptStream();
  void WriteStream(bool writable);
  void ReadStream(bool ended);
  std::size_t ReadOnce(bool ended);
  void TakeFrames();
  bool Stalled() const;
  void CountTowardsStall();
  void Decode(const FrameReader::Frame& frame, std::vector<ReceivedMessage>& messages);
  void CutWhenDue();
  void EndStream(const std::string& why, std::optional<CutHow> how);
  void DrainFinished(const PollSet& set);
  void Notice(const std::string& line) const;
  void Violate(std::uint64_t offset, const std::string& what);

  const std::function<void(const ReceivedMessage&)> onMessage;
  const std::function<void(const std::string&)> onNotice;
  DeviceRecord record;
  const int receiveBuffer;
  std::atomic<std::int64_t> clockAhead;
  Descriptor reservation;  // bound, never listening: keeps the port while connections are refused
  const std::uint16_t port;
  const Descriptor wakeup;

  // Guarded by `mutex`, which is entered before the record's lock. Only the device's thread
  // replaces or closes the stream.
  mutable std::mutex mutex;
  mutable std::condition_variable changed;  // something was sent, a stream ended, timing replied
  Descriptor listener;
  Descriptor stream;
  std::uint32_t streamNumber = 0;
  FrameBatch greeting;
  Outgoing outgoing;
  Outgoing::State outgoingState = Outgoing::State::kEmpty;
  RateLimiter readLimiter;
  bool stalled = false;
  std::optional<std::uint64_t> framesUntilStall;
  std::optional<std::uint64_t> bytesUntilCut;
  CutHow cutHow = CutHow::kReset;
  std::optional<PendingCut> pendingCut;
  std::uint64_t timingReplies = 0;
  bool stopping = false;
  std::string failure;

  // Of the device's thread alone.
  FrameReader reader;
  Bytes readBuffer;
  std::uint64_t bytesUnrecorded = 0;
  std::int64_t lastArrival = 0;
  bool brokenNoted = false;
  std::vector<Descriptor> finished;  // ended by us, waiting for the peer to end them too

  std::thread thread;
};

}  // namespace corvalint::device
