#include "usb/usb_client_thread.h"

#include "platform/clock.h"
#include "platform/socket.h"
#include "service/console.h"
#include "service/log.h"

namespace corvalint {

namespace {

constexpr std::uint32_t kConnectOk = 0;
constexpr std::uint32_t kConnectRecoveryMode = 0xE8000028;
// Treated as a usable connection, on purpose.
constexpr std::uint32_t kConnectUsableAnyway = 0xE8000065;

constexpr std::uint32_t kRecoveryMilliseconds = 5000;
constexpr std::uint32_t kAfterDisconnectMilliseconds = 1000;
constexpr std::uint32_t kDrainPollMilliseconds = 10;

}  // namespace

UsbClientThread::UsbClientThread(UsbServer& usbServer, DeviceHandle deviceHandle,
                                 ExternalMidiManager& manager)
    : BaseClientThread(usbServer, manager), device(deviceHandle) {
  LogDebug("UsbClientThread()");
  remoteEndpoint = {0, kDevicePort};
}

UsbClientThread::~UsbClientThread() {
  LogDebug("~UsbClientThread");
  Use<MobileDeviceApi>().amDeviceDisconnect(device);
}

bool UsbClientThread::Connect() {
  if (stream.IsOpen()) return true;
  if (connectionId == 0) ObtainConnectionId();
  LogDebug("Device handle=%u", connectionId);
  return connectionId != 0 && OpenPort();
}

void UsbClientThread::ObtainConnectionId() {
  const MobileDeviceApi& library = Use<MobileDeviceApi>();
  LogDebug("Connecting to device...");
  ConsolePrint("Connecting to device...\n");
  const std::uint32_t result = library.amDeviceConnect(device);
  LogDebug("AMDeviceConnect() = 0x%x", result);
  ConsolePrint("AMDeviceConnect() = 0x%x\n", result);
  switch (result) {
    case kConnectOk:
      connectionId = library.amDeviceGetConnectionId(device);
      break;
    case kConnectRecoveryMode: {
      const std::uint32_t recoveryId = library.amDeviceGetConnectionId(device);
      LogDebug("muxConnTmp = %X", recoveryId);
      ConsolePrint("found iDevice in Recovery Mode - muxConnTmp = %X\n", recoveryId);
      Use<ClockApi>().sleep(kRecoveryMilliseconds);
      break;
    }
    case kConnectUsableAnyway: {
      const std::uint32_t usableId = library.amDeviceGetConnectionId(device);
      LogDebug("muxConnTmp = %X", usableId);
      ConsolePrint("muxConnTmp = %X\n", usableId);
      connectionId = usableId;
      break;
    }
    default:
      LogError("AMDeviceConnect = %i", static_cast<int>(result));
      ConsolePrint("AMDeviceConnect = %i\n", static_cast<int>(result));
  }
}

// The stream is published only once it cannot block a sender any more. The announcement follows the
// publication: an endpoint that is switched on in between is announced twice rather than never.
bool UsbClientThread::OpenPort() {
  const SocketApi& sockets = Use<SocketApi>();
  LogDebug("Opening port...");
  std::int64_t connected = 0;  // the library may store a handle of 64 bits
  const std::uint32_t result = Use<MobileDeviceApi>().usbMuxConnectByPort(
      connectionId, sockets.toNetworkOrder(kDevicePort), &connected);
  const auto socket = static_cast<int>(connected);
  if (result != 0 || socket <= 0) {
    LogError("USBMuxConnectByPort = %x, handle=%x", result, static_cast<unsigned>(socket));
    return false;
  }
  if (sockets.setNonBlocking(socket) != 0) {
    // Senders hold locks: one device that does not read would stop them all.
    LogError("the stream to the device would block");
    sockets.close(socket);
    return false;
  }
  sockets.setNoDelay(socket);
  LogInfo("USBMuxConnectByPort OK");
  OpenStream(socket);
  // A stop that came while the port was being opened found nothing to close.
  if (!running) {
    PerformDisconnect();
    return false;
  }
  AnnounceEndpoints();
  return true;
}

void UsbClientThread::AnnounceEndpoints() {
  unannounced = 0;
  AnnounceDesktop(GetMidiEndpointRegistry());
  AnnounceOtherDevices();
  if (unannounced > 0) LogDebug("endpoints with names too long to announce: %d", unannounced);
}

// No toggle runs meanwhile, so an endpoint that is switched off cannot be announced after its end.
void UsbClientThread::AnnounceDesktop(MidiEndpointRegistry& registry) {
  CriticalSectionScope hold(registry.deviceLock);
  const auto sources = registry.Sources();
  for (auto source = sources.rbegin(); source != sources.rend(); ++source) {
    if ((*source)->IsOpen()) {
      AnnounceOne(EndpointKind::source, (*source)->name, (*source)->uniqueId);
    }
  }
  const auto destinations = registry.Destinations();
  for (auto it = destinations.rbegin(); it != destinations.rend(); ++it) {
    if ((*it)->IsOpen()) {
      AnnounceOne(EndpointKind::destination, (*it)->name, (*it)->uniqueId);
    }
  }
}

void UsbClientThread::AnnounceOtherDevices() {
  CriticalSectionScope hold(server.clientLock);
  for (DeviceClient* other : ClientWalk(server.clients)) {
    if (other == this) continue;
    for (const PublishedEndpoint& endpoint : other->Owner().PublishedEndpoints()) {
      AnnounceOne(endpoint.kind, endpoint.name, static_cast<std::int32_t>(endpoint.id));
    }
  }
}

// A name of another device that fits no packet costs its own announcement and no other.
void UsbClientThread::AnnounceOne(EndpointKind kind, const std::string& name, std::int32_t id) {
  try {
    AnnouncementPacket(AdditionOf(kind), name, id).SendTo(*this);
  } catch (const osc::OutOfBufferMemoryException&) {
    ++unannounced;
  }
}

void UsbClientThread::PerformDisconnect() {
  LogDebug("UsbClientThread::PerformDisconnect()");
  ConsolePrint("UsbClientThread::PerformDisconnect()\n");
  {
    CriticalSectionScope hold(server.clientLock);
    if (!stream.Close()) {
      disconnected = 1;
      return;
    }
    localPorts->RemoveAll();
  }
  Use<ClockApi>().sleep(kAfterDisconnectMilliseconds);
}

void UsbClientThread::Stop() {
  LogDebug("UsbClientThreadMidi::Stop()");
  disconnected = 0;
  running = false;
  localPorts->Shut();
  PerformDisconnect();
}

std::uint32_t UsbClientThread::Finalize() {
  LogDebug("UsbClientThread::Finalize()");
  Stop();
  Use<MobileDeviceApi>().amDeviceDisconnect(device);
  gate.Close();
  while (server.clients.Contains(*this) || !gate.Drained()) {
    Use<ClockApi>().sleep(kDrainPollMilliseconds);
  }
  localPorts.reset();  // while all of this object is there for a port that is sending
  delete this;
  return 0;
}

}  // namespace corvalint
