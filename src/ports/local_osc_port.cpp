#include "ports/local_osc_port.h"

#include <osc/OscOutboundPacketStream.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <utility>

#include "clients/packet_buffer.h"
#include "platform/clock.h"
#include "platform/datagram.h"
#include "platform/socket.h"
#include "ports/leaving_udp_ports.h"
#include "service/console.h"
#include "service/log.h"

namespace corvalint {

namespace {

constexpr std::uint32_t kRetryMilliseconds = 5000;
constexpr std::uint32_t kLeavingPollMilliseconds = 1;
constexpr int kDatagramBuffer = 131084;
// A bind counts as failed below this result only, so it never does, on purpose: devices expect a
// port whose number is taken to go on and to report itself ready.
constexpr int kBindFailure = -1110;
// How long a port waits until it asks its crowded device again: ever longer, since so many ports
// may wait for one device.
constexpr std::uint32_t kFirstCrowdedPollMilliseconds = 1;
constexpr std::uint32_t kLongestCrowdedPollMilliseconds = 16;

// A port's client for as long as this lives; none once the client has gone.
class BorrowedDelegate {
 public:
  explicit BorrowedDelegate(LocalOSCPortLink& owner)
      : link(owner.gate.TryBorrow() ? &owner : nullptr) {}
  ~BorrowedDelegate() {
    if (link != nullptr) link->gate.Return();
  }
  BorrowedDelegate(const BorrowedDelegate&) = delete;
  BorrowedDelegate& operator=(const BorrowedDelegate&) = delete;

  explicit operator bool() const { return link != nullptr; }
  LocalOSCPortDelegate* operator->() const { return &link->delegate; }

 private:
  LocalOSCPortLink* const link;
};

}  // namespace

std::string OscPortKey(const std::string& host, std::int32_t port) {
  return host + std::to_string(port);
}

LocalOSCPort::LocalOSCPort(std::int32_t bindPort, std::int32_t destinationPort,
                           const std::string& host, std::shared_ptr<LocalOSCPortLink> clientLink)
    : localPort(static_cast<std::uint16_t>(bindPort)),
      remotePort(static_cast<std::uint16_t>(destinationPort)),
      destinationKey(OscPortKey(host, destinationPort)),
      bindKey(OscPortKey(host, bindPort)),
      link(std::move(clientLink)) {
  remoteAddressKnown = Use<DatagramApi>().parseAddress(host, &remoteAddress);
}

LocalOSCPort::~LocalOSCPort() {
  {
    CriticalSectionScope hold(lock);
    CloseHandle();
  }
  if (waker != 0) Use<SocketApi>().closeWaker(waker);
}

void LocalOSCPort::Launch(const std::shared_ptr<LocalOSCPort>& port) {
  port->threadShare = port;
  port->Start();
  if (!port->HasThread()) port->threadShare.reset();
}

std::uint32_t LocalOSCPort::Run() {
  try {
    // Before anything is reported: a port without them would be ready for nothing.
    datagram = std::make_unique_for_overwrite<char[]>(kDatagramBuffer);
    packet = std::make_unique_for_overwrite<char[]>(kMaximumPayload);
    const int opened = OpenSocket();
    if (opened >= 1 && Bind(opened)) {
      Report(Status::ready);
      ForwardDatagrams(opened);
    }
  } catch (const std::exception& failure) {
    LogError("OSC port %u ended: %s", static_cast<unsigned>(localPort), failure.what());
  }
  Finish();
  return 0;
}

// The socket, or what there was instead of one when the port was stopped meanwhile.
int LocalOSCPort::OpenSocket() {
  for (;;) {
    const int made = MakeSocket();
    if (made >= 1) return made;
    Report(Status::noSocket);
    ConsolePrint("error creating socket || error: %d\n", made);
    if (!running) return made;
    Use<ClockApi>().sleep(kRetryMilliseconds);
  }
}

// A socket whose wait nobody could end counts as none.
int LocalOSCPort::MakeSocket() {
  const SocketApi& sockets = Use<SocketApi>();
  const int made = Use<DatagramApi>().open();
  if (made < 1) return made;
  if (waker == 0) waker = sockets.openWaker();
  if (waker == 0) {
    sockets.close(made);
    return 0;
  }
  CriticalSectionScope hold(lock);
  handle = made;
  return made;
}

bool LocalOSCPort::Bind(int opened) {
  while (running && IsLeaving(localPort)) Use<ClockApi>().sleep(kLeavingPollMilliseconds);
  for (;;) {
    const int result = TryBind(opened);
    if (result >= kBindFailure) break;
    ConsolePrint("bind failed  because %d \n", result);
    Report(Status::bindFailed);
    if (!running) return false;
    Use<ClockApi>().sleep(kRetryMilliseconds);
  }
  if (!bound && running) {
    LogError("OSC port %u: no free number, it neither hears nor sends",
             static_cast<unsigned>(localPort));
  }
  return true;
}

// Senders get the socket once it has a number: a send through one without would bind it to every
// network's address. A number that is taken is replaced by a free one. A port that was stopped
// before takes none, since the device may have opened another port there.
int LocalOSCPort::TryBind(int opened) {
  const DatagramApi& datagrams = Use<DatagramApi>();
  CriticalSectionScope hold(lock);
  if (!running) return 0;
  const int result = datagrams.bindLoopback(opened, localPort);
  if (result != 0) keepSocket = true;
  if (result < kBindFailure) return result;
  bound = result == 0 || datagrams.bindLoopback(opened, 0) == 0;
  if (bound) socket = opened;
  return result;
}

void LocalOSCPort::ForwardDatagrams(int opened) {
  const SocketApi& sockets = Use<SocketApi>();
  const int heard = bound ? opened : 0;  // without a number only the stop is waited for
  while (running) {
    const SocketReadiness ready = sockets.wait(heard, false, waker);
    // Asked first: the wait also ends because of a stop.
    if (!running) return;
    if (ready.failed) {
      if (sockets.lastError() != SocketError::interrupted) return;
    } else if (ready.exceptional) {
      return;
    } else if (ready.readable) {
      ForwardWaiting(opened);
    }
  }
}

// Forwards everything that has arrived by now. A failure is nothing to forward, and the port goes
// on: the answer to a send that nobody listened to may be one.
void LocalOSCPort::ForwardWaiting(int opened) {
  std::uint32_t crowdedPoll = kFirstCrowdedPollMilliseconds;
  while (running && socket != 0) {
    // A flood stays in the socket while the device is slow, where the system drops what is too
    // much. On the stream it would push off everybody's notes.
    if (DeviceIsCrowded()) {
      Use<ClockApi>().sleep(crowdedPoll);
      crowdedPoll = std::min(2 * crowdedPoll, kLongestCrowdedPollMilliseconds);
      continue;
    }
    crowdedPoll = kFirstCrowdedPollMilliseconds;
    const int received = Use<DatagramApi>().receive(opened, datagram.get(), kDatagramBuffer);
    if (received < 0) {
      // One that lasts must not make this thread spin.
      if (Use<SocketApi>().lastError() == SocketError::other) Use<ClockApi>().sleep(1);
      return;
    }
    Forward(static_cast<std::size_t>(received));
  }
}

void LocalOSCPort::Forward(std::size_t size) {
  try {
    osc::OutboundPacketStream message(packet.get(), kMaximumPayload);
    message << osc::BeginMessage("/osc") << bindKey.c_str()
            << osc::Blob(datagram.get(), static_cast<osc::osc_bundle_element_size_t>(size))
            << osc::EndMessage;
    SendToDevice(message.Data(), message.Size());
  } catch (const osc::OutOfBufferMemoryException&) {
    ++tooLong;
  }
}

void LocalOSCPort::Report(Status newStatus) {
  status = static_cast<std::uint32_t>(newStatus);
  char buffer[kSmallPacketBuffer];
  try {
    osc::OutboundPacketStream message(buffer, sizeof buffer);
    message << osc::BeginMessage("/osc/port_creation_report") << bindKey.c_str()
            << static_cast<osc::int32>(newStatus) << osc::EndMessage;
    SendToDevice(message.Data(), message.Size());
  } catch (const osc::OutOfBufferMemoryException&) {
    LogDebug("OSC port %u: its key is too long to be reported", static_cast<unsigned>(localPort));
  }
}

void LocalOSCPort::SendToDevice(const void* data, std::size_t size) {
  if (const BorrowedDelegate device(*link); device) device->SendPacket(data, size);
}

bool LocalOSCPort::DeviceIsCrowded() {
  const BorrowedDelegate device(*link);
  return device && device->IsCrowded();
}

void LocalOSCPort::SendToDestination(const void* data, std::uint32_t size) {
  bool sent;
  {
    CriticalSectionScope hold(lock);
    // An address of 0 is this very machine on some systems.
    sent = socket >= 1 && remoteAddressKnown &&
           Use<DatagramApi>().send(socket, data, static_cast<int>(size), remoteAddress,
                                   remotePort) >= 0;
  }
  if (sent) return;
  std::fputs("sendto() failed\n", stderr);
  std::fflush(stderr);  // a pipe behind it would keep the line back until the process ends
}

void LocalOSCPort::Stop() {
  {
    CriticalSectionScope hold(lock);
    CloseSocket();
    CThread::Stop();
  }
  if (waker != 0) Use<SocketApi>().wake(waker);
}

void LocalOSCPort::CloseSocket() {
  if (socket.exchange(0) < 1 || keepSocket) return;
  NoteLeaving(localPort);
  leaving = true;
}

void LocalOSCPort::CloseHandle() {
  if (handle > 0) Use<SocketApi>().close(handle);
  handle = 0;
  if (leaving) NoteLeft(localPort);
  leaving = false;
}

void LocalOSCPort::Finish() {
  {
    CriticalSectionScope hold(lock);
    CloseSocket();
    if (!keepSocket) CloseHandle();
  }
  if (tooLong > 0) {
    LogDebug("OSC port %u: %llu datagrams were too long for a frame",
             static_cast<unsigned>(localPort), static_cast<unsigned long long>(tooLong));
  }
  ConsolePrint("Finished\n");
  LeaveThread();
  const std::shared_ptr<LocalOSCPort> last = std::move(threadShare);
}

}  // namespace corvalint
