// The thread of the simulated device: accepts, reads, sends what could not be sent at once, cuts.
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "device/raw_time.h"
#include "device/simulated_device.h"

namespace corvalint::device {
namespace {

constexpr std::size_t kReadSize = 65536;
constexpr int kReadsPerTurn = 8;
constexpr short kEnded = POLLERR | POLLHUP;

}  // namespace

struct SimulatedDevice::PollSet {
  std::vector<pollfd> entries;
  std::size_t listenerAt = 0;  // 0 = not polled; entry 0 is the wake-up
  std::size_t streamAt = 0;
  std::size_t finishedAt = 0;
  int timeout = -1;

  short Result(std::size_t index) const { return index == 0 ? short{0} : entries[index].revents; }
};

void SimulatedDevice::Run() {
  std::string reason;
  try {
    while (Turn()) {
    }
  } catch (const std::exception& error) {
    reason = error.what();
  }
  bool wasOpen = false;
  {
    const std::lock_guard lock(mutex);
    failure = reason;
    listener.Close();
    wasOpen = stream.Open();
    stream.Close();
  }
  if (wasOpen) record.StreamClosed();
  changed.notify_all();
}

bool SimulatedDevice::Turn() {
  PollSet set = BuildPollSet();
  if (::poll(set.entries.data(), set.entries.size(), set.timeout) < 0 && errno != EINTR) {
    throw std::system_error(errno, std::generic_category(), "poll");
  }
  TakeWakeups(wakeup);
  {
    const std::lock_guard lock(mutex);
    if (stopping) return false;
  }
  DrainFinished(set);
  CutWhenDue();
  TakeFrames();
  if (set.Result(set.listenerAt) != 0) AcceptStream();
  if (set.streamAt != 0) {
    const short result = set.Result(set.streamAt);
    WriteStream((result & POLLOUT) != 0);
    if ((result & (POLLIN | kEnded)) != 0) ReadStream((result & kEnded) != 0);
  }
  return true;
}

SimulatedDevice::PollSet SimulatedDevice::BuildPollSet() {
  PollSet set;
  set.entries.push_back({wakeup.Get(), POLLIN, 0});
  const std::lock_guard lock(mutex);
  if (stream.Open()) {
    const bool mayRead = readLimiter.Allowed(RawNow()) > 0;
    short events = 0;
    if (mayRead && !stalled && !pendingCut) events |= POLLIN;
    if (outgoingState == Outgoing::State::kBlocked && !pendingCut) events |= POLLOUT;
    set.streamAt = set.entries.size();
    set.entries.push_back({stream.Get(), events, 0});
    set.timeout = PollTimeoutLocked(mayRead);
  } else if (listener.Open()) {
    set.listenerAt = set.entries.size();
    set.entries.push_back({listener.Get(), POLLIN, 0});
  }
  set.finishedAt = set.entries.size();
  for (const Descriptor& descriptor : finished) {
    set.entries.push_back({descriptor.Get(), POLLIN, 0});
  }
  return set;
}

int SimulatedDevice::PollTimeoutLocked(bool mayRead) const {
  if (pendingCut) return pendingCut->afterAcknowledgement ? 1 : 0;
  const bool waitsForReadRate = !mayRead && !stalled;
  return waitsForReadRate || outgoingState == Outgoing::State::kDue ? 1 : -1;
}

void SimulatedDevice::AcceptStream() {
  std::uint32_t number = 0;
  {
    const std::lock_guard lock(mutex);
    if (!listener.Open() || stream.Open()) return;
    stream = Accept(listener);
    if (!stream.Open()) return;
    number = ++streamNumber;
    outgoingState = Outgoing::State::kEmpty;
    if (greeting.Frames() > 0) outgoing.Add(greeting.Data(), greeting.Frames());
    FlushLocked();
  }
  Notice("stream " + std::to_string(number) + " open");
  record.StreamOpened();
}

void SimulatedDevice::WriteStream(bool writable) {
  const std::lock_guard lock(mutex);
  if (writable && outgoingState == Outgoing::State::kBlocked) {
    outgoingState = Outgoing::State::kDue;
  }
  if (outgoingState == Outgoing::State::kDue) FlushLocked();
}

void SimulatedDevice::ReadStream(bool ended) {
  if (ended && Stalled()) return EndStream("reset by the peer while stalled", std::nullopt);
  for (int i = 0; i < kReadsPerTurn; ++i) {
    if (Stalled() || ReadOnce(ended) < kReadSize) return;
  }
}

// Reads once and handles what came. An ended stream is read regardless of the rate, since nothing
// more than what is there will come. Gives the number of bytes read.
std::size_t SimulatedDevice::ReadOnce(bool ended) {
  readBuffer.resize(kReadSize);
  ssize_t count = 0;
  int error = 0;
  std::optional<CutHow> cut;
  {
    const std::lock_guard lock(mutex);
    if (!stream.Open() || pendingCut) return 0;
    std::size_t wanted = kReadSize;
    if (!ended) wanted = std::min(wanted, readLimiter.Allowed(RawNow()));
    if (bytesUntilCut) wanted = std::min<std::size_t>(wanted, *bytesUntilCut);
    if (wanted == 0) return 0;
    count = ::recv(stream.Get(), readBuffer.data(), wanted, MSG_DONTWAIT);
    error = errno;
    if (count > 0) {
      readLimiter.Take(static_cast<std::size_t>(count));
      if (bytesUntilCut) {
        *bytesUntilCut -= static_cast<std::uint64_t>(count);
        if (*bytesUntilCut == 0) cut = cutHow;
      }
      if (cut) bytesUntilCut.reset();
    }
  }
  if (count < 0) {
    if (error != EAGAIN && error != EINTR) EndStream(std::strerror(error), std::nullopt);
    return 0;
  }
  if (count == 0) {
    if (reader.Pending() > 0 && !reader.Broke()) {
      Violate(reader.Offset() - reader.Pending(), "the stream ended inside this frame");
    }
    EndStream("ended by the peer", std::nullopt);
    return 0;
  }
  lastArrival = RawNow();
  bytesUnrecorded += static_cast<std::uint64_t>(count);
  reader.Feed(readBuffer.data(), static_cast<std::size_t>(count));
  TakeFrames();
  if (cut) EndStream("cut after its last byte wanted", cut);
  return static_cast<std::size_t>(count);
}

void SimulatedDevice::TakeFrames() {
  std::vector<ReceivedFrame> frames;
  std::vector<ReceivedMessage> messages;
  while (!Stalled()) {
    std::optional<FrameReader::Frame> frame = reader.Next();
    if (!frame) break;
    Decode(*frame, messages);
    frames.push_back({streamNumber, frame->offset, lastArrival, std::move(frame->bytes)});
    CountTowardsStall();
  }
  if (reader.Broke() && !std::exchange(brokenNoted, true)) {
    Violate(reader.Broke()->offset, reader.Broke()->reason);
  }
  if (bytesUnrecorded == 0 && frames.empty()) return;
  if (onMessage) {
    for (const ReceivedMessage& message : messages) onMessage(message);
  }
  const auto isTimingReply = [](const ReceivedMessage& received) {
    return received.message.address == "/init_timing" ||
           received.message.address == "/update_timing";
  };
  const auto replies = std::count_if(messages.begin(), messages.end(), isTimingReply);
  record.AddReceived(std::exchange(bytesUnrecorded, 0), std::move(frames), std::move(messages));
  if (replies > 0) {
    const std::lock_guard lock(mutex);
    timingReplies += static_cast<std::uint64_t>(replies);
    changed.notify_all();
  }
}

bool SimulatedDevice::Stalled() const {
  const std::lock_guard lock(mutex);
  return stalled;
}

void SimulatedDevice::CountTowardsStall() {
  const std::lock_guard lock(mutex);
  if (!framesUntilStall || --*framesUntilStall > 0) return;
  framesUntilStall.reset();
  stalled = true;
}

void SimulatedDevice::Decode(const FrameReader::Frame& frame,
                             std::vector<ReceivedMessage>& messages) {
  try {
    for (OscMessage& message : DecodePacket(frame.bytes.data() + kFrameHeaderSize,
                                            frame.bytes.size() - kFrameHeaderSize)) {
      messages.push_back({streamNumber, lastArrival, std::move(message)});
    }
  } catch (const std::runtime_error& error) {
    Violate(frame.offset, std::string("not an OSC packet: ") + error.what());
  }
}

void SimulatedDevice::CutWhenDue() {
  CutHow how{};
  {
    const std::lock_guard lock(mutex);
    if (!pendingCut || !stream.Open()) return;
    if (pendingCut->afterAcknowledgement && Unacknowledged(stream) > 0) return;
    how = pendingCut->how;
  }
  EndStream(how == CutHow::kReset ? "cut with a reset" : "cut with a regular end", how);
}

void SimulatedDevice::EndStream(const std::string& why, std::optional<CutHow> how) {
  std::uint64_t dropped = 0;
  {
    const std::lock_guard lock(mutex);
    dropped = outgoing.Drop();
    outgoingState = Outgoing::State::kEmpty;
    pendingCut.reset();
    if (how == CutHow::kReset) ResetOnClose(stream);
    if (how == CutHow::kFinish) {
      // Closing with unread bytes would send a reset; the peer's end is awaited instead.
      ::shutdown(stream.Get(), SHUT_WR);
      finished.push_back(std::move(stream));
    } else {
      stream.Close();
    }
  }
  reader = FrameReader();
  brokenNoted = false;
  Notice("stream " + std::to_string(streamNumber) + " closed: " + why);
  if (dropped > 0) record.AddDropped(dropped);
  record.StreamClosed();
  changed.notify_all();
}

void SimulatedDevice::DrainFinished(const PollSet& set) {
  Bytes scratch(finished.empty() ? 0 : kReadSize);
  for (std::size_t i = 0; i < finished.size(); ++i) {
    if (set.entries[set.finishedAt + i].revents == 0) continue;
    const ssize_t count = ::recv(finished[i].Get(), scratch.data(), scratch.size(), MSG_DONTWAIT);
    if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) finished[i].Close();
  }
  std::erase_if(finished, [](const Descriptor& descriptor) { return !descriptor.Open(); });
}

void SimulatedDevice::Notice(const std::string& line) const {
  if (onNotice) onNotice(line);
}

void SimulatedDevice::Violate(std::uint64_t offset, const std::string& what) {
  Notice("violation at byte " + std::to_string(offset) + " of stream " +
         std::to_string(streamNumber) + ": " + what);
  record.AddViolation({streamNumber, offset, what});
}

}  // namespace corvalint::device
