#include "protocol/device_stream.h"

#include <cstring>
#include <utility>

#include "platform/clock.h"
#include "platform/socket.h"
#include "service/log.h"

namespace corvalint {

namespace {

// How much may wait for a device that does not read: seconds of dense music, and bounded.
constexpr std::size_t kMostKept = std::size_t{1} << 20;
// From here on the rest of the room is for those who cannot wait.
constexpr std::size_t kCrowded = kMostKept / 4;

// No receiver would accept such a frame.
bool TooLarge(std::uint32_t payloadSize) { return payloadSize > kMaximumPayload; }

bool WorthAnotherTry() {
  const SocketError error = Use<SocketApi>().lastError();
  return error == SocketError::wouldBlock || error == SocketError::interrupted;
}

}  // namespace

DeviceStream::DeviceStream()
    : staging(std::make_unique_for_overwrite<char[]>(kFrameHeaderSize + kMaximumPayload)),
      waker(Use<SocketApi>().openWaker()) {}

DeviceStream::~DeviceStream() {
  Close();
  ReportLosses();
  if (waker != 0) Use<SocketApi>().closeWaker(waker);
}

void DeviceStream::Open(int connectedSocket) {
  ReportLosses();  // of the stream before
  std::vector<char> room;
  try {
    room.reserve(kMostKept);
  } catch (...) {
    Use<SocketApi>().close(connectedSocket);
    throw;
  }
  CriticalSectionScope hold(lock);
  kept.swap(room);
  keptBegin = 0;
  moreWaits = false;
  socket = connectedSocket;
}

bool DeviceStream::Close() {
  const SocketApi& sockets = Use<SocketApi>();
  {
    CriticalSectionScope hold(lock);
    const int open = socket.exchange(0);
    if (open <= 0) return false;
    std::vector<char>().swap(kept);
    keptBegin = 0;
    sockets.shutdown(open);
    if (receiving) {
      closeAfterReceive = open;
    } else {
      sockets.close(open);
    }
  }
  if (waker != 0) sockets.wake(waker);
  return true;
}

int DeviceStream::Send(const void* data, std::uint32_t size) {
  if (TooLarge(size)) return -1;
  CriticalSectionScope hold(lock);
  WriteFrameHeader(staging.get(), size);
  if (size > 0) std::memcpy(staging.get() + kFrameHeaderSize, data, size);
  return SendOrKeep({staging.get(), size});
}

int DeviceStream::SendFrame(const Frame& frame) {
  if (TooLarge(frame.payloadSize)) return -1;
  CriticalSectionScope hold(lock);
  return SendOrKeep(frame);
}

int DeviceStream::SendOrKeep(const Frame& frame) {
  const int open = socket;
  if (open <= 0) return -1;
  const std::size_t total = frame.Size();
  if (HasKept() && SendKept(open) != Kept::sent) {
    if (kept.size() - keptBegin + total > kMostKept) {
      ++dropped;
      return -1;
    }
    Keep(frame.header, total);
    return static_cast<int>(total);
  }
  int taken = Use<SocketApi>().send(open, frame.header, static_cast<int>(total));
  if (taken < 0) {
    if (!WorthAnotherTry()) return -1;  // the receiving thread finds the stream broken
    taken = 0;
  }
  if (static_cast<std::size_t>(taken) < total) {
    Keep(frame.header + taken, total - static_cast<std::size_t>(taken));
    if (waker != 0) Use<SocketApi>().wake(waker);
  }
  return static_cast<int>(total);
}

int DeviceStream::Receive(void* data, int size) {
  int open;
  {
    CriticalSectionScope hold(lock);
    open = socket;
    if (open <= 0) return -1;
    receiving = true;
  }
  const int received = ReceiveFrom(open, data, size);
  moreWaits = received == size;
  {
    CriticalSectionScope hold(lock);
    receiving = false;
    if (closeAfterReceive > 0) Use<SocketApi>().close(closeAfterReceive);
    closeAfterReceive = 0;
  }
  if (received <= 0) ReportLosses();
  return received;
}

// In the middle of a burst there is nothing to wait for.
int DeviceStream::ReceiveFrom(int open, void* data, int size) {
  if (moreWaits && !WantsToSend()) {
    const int received = Use<SocketApi>().receive(open, data, size);
    if (socket != open) return -1;
    if (received >= 0 || !WorthAnotherTry()) return received;
  }
  return WaitAndReceive(open, data, size);
}

int DeviceStream::WaitAndReceive(int open, void* data, int size) {
  const SocketApi& sockets = Use<SocketApi>();
  for (;;) {
    const SocketReadiness ready = sockets.wait(open, WantsToSend(), waker);
    // Asked first: a closed socket may look readable.
    if (socket != open) return -1;
    if (ready.failed) {
      if (!WorthAnotherTry()) return -1;
      continue;
    }
    if (ready.writable) {
      bool broken = false;
      {
        CriticalSectionScope hold(lock);
        if (socket == open) broken = SendKept(open) == Kept::failed;
      }
      // What is kept begins inside a frame, so nothing else can follow; and a wait for such a
      // stream would end at once for ever. What the device had sent before is read first.
      if (broken && !ready.readable) return -1;
    }
    if (!ready.readable && !ready.exceptional) continue;
    const int received = sockets.receive(open, data, size);
    if (socket != open) return -1;
    if (received >= 0) return received;
    if (!WorthAnotherTry()) return -1;
    // Urgent data stays pending without anything to read; it must not make this loop spin.
    if (!ready.readable) Use<ClockApi>().sleep(1);
  }
}

DeviceStream::Kept DeviceStream::SendKept(int open) {
  if (!HasKept()) return Kept::sent;
  const std::size_t count = kept.size() - keptBegin;
  const int taken = Use<SocketApi>().send(open, kept.data() + keptBegin, static_cast<int>(count));
  if (taken < 0) return WorthAnotherTry() ? Kept::waits : Kept::failed;
  keptBegin += static_cast<std::size_t>(taken);
  if (HasKept()) return Kept::waits;
  kept.clear();
  keptBegin = 0;
  return Kept::sent;
}

void DeviceStream::Keep(const char* bytes, std::size_t count) {
  if (kept.size() + count > kMostKept) {
    kept.erase(kept.begin(), kept.begin() + static_cast<std::ptrdiff_t>(keptBegin));
    keptBegin = 0;
  }
  kept.insert(kept.end(), bytes, bytes + count);
}

bool DeviceStream::IsCrowded() {
  CriticalSectionScope hold(lock);
  const int open = socket;
  if (open <= 0 || SendKept(open) == Kept::sent) return false;
  return kept.size() - keptBegin > kCrowded;
}

// Asked before each wait and each receive, so it is here that the end of a stall is noticed,
// whichever thread sent the last of what was kept.
bool DeviceStream::WantsToSend() {
  std::uint64_t lost = 0;
  bool wants;
  {
    CriticalSectionScope hold(lock);
    wants = HasKept();
    if (!wants) lost = std::exchange(dropped, 0);
  }
  LogLosses(lost);
  return wants;
}

void DeviceStream::ReportLosses() {
  std::uint64_t lost;
  {
    CriticalSectionScope hold(lock);
    lost = std::exchange(dropped, 0);
  }
  LogLosses(lost);
}

// One line a stall, once it is over; written by the receiving thread, which holds no lock.
void DeviceStream::LogLosses(std::uint64_t frames) {
  if (frames == 0) return;
  LogDebug("the device did not read: %lu frames dropped", static_cast<unsigned long>(frames));
}

}  // namespace corvalint
