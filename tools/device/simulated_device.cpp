#include "device/simulated_device.h"

#include <sys/socket.h>

#include <utility>

#include "device/raw_time.h"

namespace corvalint::device {

SimulatedDevice::SimulatedDevice(DeviceOptions options)
    : onMessage(std::move(options.onMessage)),
      onNotice(std::move(options.onNotice)),
      record(options.keepRecord),
      receiveBuffer(options.receiveBuffer),
      clockAhead(options.clock.count()),
      reservation(BindLoopback(options.port, 0)),
      port(LocalPort(reservation)),
      wakeup(MakeWakeup()),
      greeting(std::move(options.greeting)) {
  AcceptConnections();
  thread = std::thread(&SimulatedDevice::Run, this);
}

SimulatedDevice::~SimulatedDevice() {
  {
    const std::lock_guard lock(mutex);
    stopping = true;
  }
  Wake(wakeup);
  thread.join();
}

std::string SimulatedDevice::Failure() const {
  const std::lock_guard lock(mutex);
  return failure;
}

bool SimulatedDevice::Connected() const {
  const std::lock_guard lock(mutex);
  return stream.Open();
}

bool SimulatedDevice::WaitForStream(std::uint64_t count, Duration timeout) const {
  return record.WaitForCounters(
      [count](const DeviceCounters& counters) { return counters.streamsOpened >= count; }, timeout);
}

bool SimulatedDevice::WaitForStreamEnd(std::uint64_t count, Duration timeout) const {
  return record.WaitForCounters(
      [count](const DeviceCounters& counters) { return counters.streamsClosed >= count; }, timeout);
}

std::int64_t SimulatedDevice::Now() const { return RawNow() + clockAhead; }

void SimulatedDevice::SetClock(std::chrono::nanoseconds aheadOfRawNow) {
  clockAhead = aheadOfRawNow.count();
}

bool SimulatedDevice::AnnounceSource(std::string_view name, const EndpointId& id) {
  return SendPacket(EncodeEndpoint("/add_remote_source", name, id));
}

bool SimulatedDevice::WithdrawSource(std::string_view name, const EndpointId& id) {
  return SendPacket(EncodeEndpoint("/remove_remote_source", name, id));
}

bool SimulatedDevice::AnnounceDestination(std::string_view name, const EndpointId& id) {
  return SendPacket(EncodeEndpoint("/add_remote_destination", name, id));
}

bool SimulatedDevice::WithdrawDestination(std::string_view name, const EndpointId& id) {
  return SendPacket(EncodeEndpoint("/remove_remote_destination", name, id));
}

bool SimulatedDevice::InitTiming() { return SendPacket(EncodeTiming("/init_timing", Now())); }

bool SimulatedDevice::UpdateTiming() { return SendPacket(EncodeTiming("/update_timing", Now())); }

bool SimulatedDevice::AlignClockAndWait(int updates, Duration timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (int round = 0; round <= updates; ++round) {
    std::uint64_t before = 0;
    std::uint32_t asked = 0;
    {
      const std::lock_guard lock(mutex);
      before = timingReplies;
      asked = streamNumber;
    }
    if (!(round == 0 ? InitTiming() : UpdateTiming())) return false;
    std::unique_lock lock(mutex);
    const auto replied = [&] { return timingReplies > before; };
    const auto ended = [&] { return !stream.Open() || streamNumber != asked; };
    changed.wait_until(lock, deadline, [&] { return replied() || ended(); });
    if (!replied()) return false;
  }
  return true;
}

bool SimulatedDevice::SendMidi(std::string_view name, const EndpointId& id, const Bytes& midi) {
  return SendMidi(name, id, Now(), midi);
}

bool SimulatedDevice::SendMidi(std::string_view name, const EndpointId& id, std::int64_t time,
                               const Bytes& midi) {
  return SendPacket(EncodeMidi(name, id, time, midi));
}

bool SimulatedDevice::SendPacket(const Bytes& packet) { return Queue(EncodeFrame(packet), 1); }

bool SimulatedDevice::SendFrame(const FrameHeader& header, const Bytes& payload) {
  return Queue(EncodeFrame(header, payload), 1);
}

bool SimulatedDevice::SendRaw(const Bytes& bytes) { return Queue(bytes, 0); }

bool SimulatedDevice::SendBatch(const FrameBatch& batch) {
  return Queue(batch.Data(), batch.Frames());
}

bool SimulatedDevice::SendRubbish(std::uint64_t seed, std::uint64_t frames, RubbishKind kind) {
  return Queue(MakeRubbish(seed, frames, kind), frames);
}

bool SimulatedDevice::SendAndCut(const Bytes& bytes, std::size_t count, CutHow how) {
  Bytes part(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(
                                                count < bytes.size() ? count : bytes.size()));
  return Queue(std::move(part), 0, how);
}

void SimulatedDevice::SetGreeting(FrameBatch batch) {
  const std::lock_guard lock(mutex);
  greeting = std::move(batch);
}

std::uint64_t SimulatedDevice::Queued() const {
  const std::lock_guard lock(mutex);
  return outgoing.Waiting();
}

bool SimulatedDevice::WaitUntilSent(Duration timeout) const {
  std::unique_lock lock(mutex);
  const std::uint32_t sendingTo = streamNumber;
  const auto ended = [&] { return !stream.Open() || streamNumber != sendingTo; };
  return changed.wait_for(lock, timeout, [&] { return outgoing.Empty() || ended(); }) && !ended();
}

void SimulatedDevice::SetPieceSize(std::size_t bytes) {
  const std::lock_guard lock(mutex);
  outgoing.SetPieceSize(bytes);
}

void SimulatedDevice::SetSendRate(std::size_t bytesPerMillisecond) {
  const std::lock_guard lock(mutex);
  outgoing.SetRate(bytesPerMillisecond, RawNow());
}

void SimulatedDevice::SetReadRate(std::size_t bytesPerMillisecond) {
  {
    const std::lock_guard lock(mutex);
    readLimiter.SetRate(bytesPerMillisecond, RawNow());
  }
  Wake(wakeup);
}

void SimulatedDevice::Stall() {
  {
    const std::lock_guard lock(mutex);
    stalled = true;
    framesUntilStall.reset();
  }
  Wake(wakeup);
}

void SimulatedDevice::StallAfterFrames(std::uint64_t frames) {
  if (frames == 0) return Stall();
  const std::lock_guard lock(mutex);
  framesUntilStall = frames;
}

void SimulatedDevice::Resume() {
  {
    const std::lock_guard lock(mutex);
    stalled = false;
    framesUntilStall.reset();
  }
  Wake(wakeup);
}

void SimulatedDevice::Cut(CutHow how) {
  {
    const std::lock_guard lock(mutex);
    if (stream.Open()) pendingCut = PendingCut{how, false};
  }
  Wake(wakeup);
}

void SimulatedDevice::CutAfterReceiving(std::uint64_t bytes, CutHow how) {
  if (bytes == 0) return Cut(how);
  const std::lock_guard lock(mutex);
  bytesUntilCut = bytes;
  cutHow = how;
}

void SimulatedDevice::RefuseConnections() {
  const std::lock_guard lock(mutex);
  if (!listener.Open()) return;
  // A poll() in progress keeps a closed socket listening; a shutdown does not wait for it.
  ::shutdown(listener.Get(), SHUT_RD);
  listener.Close();
}

void SimulatedDevice::AcceptConnections() {
  {
    const std::lock_guard lock(mutex);
    if (listener.Open()) return;
    Descriptor fresh = BindLoopback(port, receiveBuffer);
    Listen(fresh);
    listener = std::move(fresh);
  }
  Wake(wakeup);
}

bool SimulatedDevice::Queue(Bytes bytes, std::uint64_t frames, std::optional<CutHow> cut) {
  const std::lock_guard lock(mutex);
  if (!stream.Open()) return false;
  outgoing.Add(std::move(bytes), frames, cut);
  FlushLocked();
  return true;
}

void SimulatedDevice::FlushLocked() {
  // A blocked stream waits for the device's thread to see it writable.
  if (!stream.Open() || pendingCut || outgoingState == Outgoing::State::kBlocked) return;
  const Outgoing::Progress progress = outgoing.Flush(stream, RawNow());
  outgoingState = progress.state;
  record.AddSent(progress.bytes, progress.frames);
  if (outgoingState == Outgoing::State::kCut) {
    const CutHow how = outgoing.Cut();
    pendingCut = PendingCut{how, how == CutHow::kReset};
  }
  if (outgoingState != Outgoing::State::kEmpty) Wake(wakeup);
  changed.notify_all();
}

}  // namespace corvalint::device
