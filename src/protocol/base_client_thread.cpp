#include "protocol/base_client_thread.h"

#include <algorithm>
#include <cstring>
#include <exception>

#include "clients/big_endian.h"
#include "platform/clock.h"
#include "service/console.h"
#include "service/log.h"

namespace corvalint {

namespace {

constexpr std::uint32_t kReconnectMilliseconds = 5000;
constexpr std::uint32_t kDisconnectPollMilliseconds = 10;
// How much is received at once when less is asked for.
constexpr std::size_t kReadAhead = 65536;
constexpr std::size_t kCheapToMove = 512;
// The largest frame with its own header, and the header of the next frame, which comes with it.
constexpr std::size_t kReceiveBuffer = kMaximumPayload + 2 * kFrameHeaderSize;

}  // namespace

BaseClientThread::BaseClientThread(UsbServer& usbServer, ExternalMidiManager& manager)
    : server(usbServer),
      midiManager(manager),
      localPorts(std::make_unique<LocalOSCPortTable>(*this)),
      routes(manager),
      received(std::make_unique_for_overwrite<char[]>(kReceiveBuffer)) {
  LogDebug("BaseClientThread created");
}

BaseClientThread::~BaseClientThread() {
  LogDebug("~BaseClientThread");
  while (disconnected != 1) Use<ClockApi>().sleep(kDisconnectPollMilliseconds);
  localPorts.reset();
}

std::uint32_t BaseClientThread::Run() {
  while (running) {
    try {
      ReceiveFrame();
    } catch (const std::exception& failure) {
      // Nothing that one device does or that one allocation lacks may end its thread.
      LogError("device connection failed: %s", failure.what());
      PerformDisconnect();
      Use<ClockApi>().sleep(kReconnectMilliseconds);
    }
  }
  LogDebug("Finished");
  ConsolePrint("Finished\n");
  return Finalize();
}

std::uint32_t BaseClientThread::Finalize() {
  running = false;
  return 0;
}

int BaseClientThread::SendFramed(const void* data, std::uint32_t size) {
  return stream.Send(data, size);
}

int BaseClientThread::SendFrame(const Frame& frame) { return stream.SendFrame(frame); }

void BaseClientThread::SendPacket(const void* data, std::uint64_t size) {
  SendFramed(data, static_cast<std::uint32_t>(size));
}

void BaseClientThread::OpenStream(int connectedSocket) {
  receivedBegin = receivedEnd = 0;
  stream.Open(connectedSocket);
}

void BaseClientThread::ReceiveFrame() {
  if (!Connect()) {
    Use<ClockApi>().sleep(kReconnectMilliseconds);
    return;
  }
  std::uint32_t length = 0;
  std::uint32_t kind = 0;
  std::uint32_t tag = 0;
  if (!ReadWord(length)) return;
  if (length - 1 > kMaximumPayload - 1) {  // also 0
    ConsolePrint("Invalid packet length %d\n", static_cast<int>(length));
    PerformDisconnect();
    return;
  }
  if (!ReadWord(kind) || !ReadWord(tag)) return;
  const char* const packet = Read(length);
  if (packet != nullptr && kind == kFrameKind) ParsePacket(packet, length);
}

bool BaseClientThread::ReadWord(std::uint32_t& word) {
  const char* const bytes = Read(4);
  if (bytes == nullptr) return false;
  word = ReadBigEndian32(bytes);
  return true;
}

// The next bytes of the stream, valid until the next call. Null when the stream has ended; it is
// disconnected then.
const char* BaseClientThread::Read(std::size_t count) {
  if (receivedEnd - receivedBegin < count && !Gather(count)) return nullptr;
  const char* const bytes = received.get() + receivedBegin;
  receivedBegin += count;
  return bytes;
}

// Receives until `count` bytes are there to be read. A stop in the middle is no error, on purpose:
// the bytes are taken as they stand, with zeroes for those that did not come.
bool BaseClientThread::Gather(std::size_t count) {
  while (receivedEnd - receivedBegin < count) {
    if (receivedEnd > receivedBegin && (!running || !stream.IsOpen())) {
      MakeRoom(count);
      std::memset(received.get() + receivedEnd, 0, receivedBegin + count - receivedEnd);
      receivedEnd = receivedBegin + count;
      return true;
    }
    const int more = ReceiveMore(count);
    if (more <= 0) {
      ConsolePrint("Server disconnected: %ld\n", static_cast<long>(more));
      PerformDisconnect();
      return false;
    }
    receivedEnd += static_cast<std::size_t>(more);
  }
  return true;
}

// Receives what is missing together with what follows it: a burst of small frames costs one system
// call, a large one brings the header of the next.
int BaseClientThread::ReceiveMore(std::size_t count) {
  const std::size_t wanted = std::max(count + kFrameHeaderSize, kReadAhead);
  MakeRoom(wanted);
  return stream.Receive(received.get() + receivedEnd,
                        static_cast<int>(receivedBegin + wanted - receivedEnd));
}

// Makes room for `count` bytes from the first unread one on. What is unread is a part of one frame;
// it moves only if it is small or must.
void BaseClientThread::MakeRoom(std::size_t count) {
  const std::size_t unread = receivedEnd - receivedBegin;
  if (unread > kCheapToMove && receivedBegin + count <= kReceiveBuffer) return;
  std::memmove(received.get(), received.get() + receivedBegin, unread);
  receivedBegin = 0;
  receivedEnd = unread;
}

// A packet that cannot be read costs one line; the next frame is read as if nothing had been.
void BaseClientThread::ParsePacket(const char* packet, std::uint32_t length) {
  try {
    ProcessPacket(packet, length, remoteEndpoint);
  } catch (const std::exception& failure) {
    PrintParsingError(failure);
  }
}

void BaseClientThread::PrintParsingError(const std::exception& failure) {
  ConsolePrint("Error parsing message: %s\n", failure.what());
}

// %lu shows the low 32 bits of a time tag on Windows, where it always did.
void BaseClientThread::BundleStarted(const osc::ReceivedBundle& bundle) {
  LogInfo("Bundle started %lu", static_cast<unsigned long>(bundle.TimeTag()));
}

void BaseClientThread::BundleFinished(const osc::ReceivedBundle& bundle) {
  LogInfo("Bundle finished %lu", static_cast<unsigned long>(bundle.TimeTag()));
}

}  // namespace corvalint
