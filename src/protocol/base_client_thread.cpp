#include "protocol/base_client_thread.h"

#include <algorithm>
#include <cstring>
#include <exception>

#include "platform/clock.h"
#include "protocol/big_endian.h"
#include "service/console.h"
#include "service/log.h"

namespace corvalint {

namespace {

constexpr std::uint32_t kReconnectMilliseconds = 5000;
constexpr std::uint32_t kDisconnectPollMilliseconds = 10;
constexpr std::size_t kReadAheadSize = 65536;

}  // namespace

BaseClientThread::BaseClientThread(UsbServer& usbServer, ExternalMidiManager& manager)
    : server(usbServer),
      midiManager(manager),
      localPorts(std::make_unique<LocalOSCPortTable>(*this)),
      frame(kMaximumPayload),
      readAhead(kReadAheadSize) {
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

void BaseClientThread::SendPacket(const void* data, std::uint64_t size) {
  SendFramed(data, static_cast<std::uint32_t>(size));
}

void BaseClientThread::OpenStream(int connectedSocket) {
  readAheadBegin = readAheadEnd = 0;
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
  if (!Read(frame.data(), length)) return;
  if (kind == kFrameKind) ParsePacket(length);
}

bool BaseClientThread::ReadWord(std::uint32_t& word) {
  if (!Read(frame.data(), 4)) return false;
  word = ReadBigEndian32(frame.data());
  return true;
}

// False when the stream has ended; it is disconnected then. A stop in the middle is no error, on
// purpose: the bytes are taken as they stand.
bool BaseClientThread::Read(char* target, std::size_t count) {
  std::size_t read = TakeReadAhead(target, count);
  while (read < count) {
    if (read > 0 && (!running || !stream.IsOpen())) return true;
    const int received = ReceiveSome(target + read, count - read);
    if (received <= 0) {
      ConsolePrint("Server disconnected: %ld\n", static_cast<long>(received));
      PerformDisconnect();
      return false;
    }
    read += static_cast<std::size_t>(received);
  }
  return true;
}

// Receives what a small read asks for together with what follows it, so that a burst of small
// frames costs one system call.
int BaseClientThread::ReceiveSome(char* target, std::size_t count) {
  if (count >= readAhead.size()) return stream.Receive(target, static_cast<int>(count));
  const int received = stream.Receive(readAhead.data(), static_cast<int>(readAhead.size()));
  if (received <= 0) return received;
  readAheadBegin = 0;
  readAheadEnd = static_cast<std::size_t>(received);
  return static_cast<int>(TakeReadAhead(target, count));
}

std::size_t BaseClientThread::TakeReadAhead(char* target, std::size_t count) {
  const std::size_t taken = std::min(count, readAheadEnd - readAheadBegin);
  std::memcpy(target, readAhead.data() + readAheadBegin, taken);
  readAheadBegin += taken;
  return taken;
}

// A packet that cannot be read costs one line; the next frame is read as if nothing had been.
void BaseClientThread::ParsePacket(std::uint32_t length) {
  try {
    ProcessPacket(frame.data(), length, remoteEndpoint);
  } catch (const std::exception& failure) {
    ConsolePrint("Error parsing message: %s\n", failure.what());
  }
}

// %lu shows the low 32 bits of a time tag on Windows, where it always did.
void BaseClientThread::BundleStarted(const osc::ReceivedBundle& bundle) {
  LogInfo("Bundle started %lu", static_cast<unsigned long>(bundle.TimeTag()));
}

void BaseClientThread::BundleFinished(const osc::ReceivedBundle& bundle) {
  LogInfo("Bundle finished %lu", static_cast<unsigned long>(bundle.TimeTag()));
}

}  // namespace corvalint
