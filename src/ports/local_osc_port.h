#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "clients/borrow_gate.h"
#include "platform/critical_section.h"
#include "service/cthread.h"

namespace corvalint {

// The device of a port. Called on the ports' threads, all at once; never blocks.
class LocalOSCPortDelegate {
 public:
  // Sends a finished OSC packet of `size` bytes to the device.
  virtual void SendPacket(const void* data, std::uint64_t size) = 0;
  // Whether so much waits for the device that datagrams had better stay where they are.
  virtual bool IsCrowded() { return false; }

 protected:
  ~LocalOSCPortDelegate() = default;
};

// The way from the ports of one device to its client, shared by them all. It ends before the client
// does: a port whose borrow fails has no delegate any more.
struct LocalOSCPortLink {
  explicit LocalOSCPortLink(LocalOSCPortDelegate& owner) : delegate(owner) {}

  LocalOSCPortDelegate& delegate;
  BorrowGate gate;
};

// Host and port number, in signed decimal, with nothing between them.
std::string OscPortKey(const std::string& host, std::int32_t port);

// One UDP port on 127.0.0.1 that a device has opened on the desktop, and its thread. What the
// device sends goes to the destination (host and port), every datagram that arrives goes to the
// device. Shared by the table and by its own thread.
//
// To the device, as OSC messages (docs/wire-format.md):
//   "/osc/port_creation_report"   string bind key, int32 status
//   "/osc"                        string bind key, blob: one datagram
class LocalOSCPort final : public CThread {
 public:
  enum class Status : std::uint32_t { notReady = 0, ready = 1, bindFailed = 2, noSocket = 3 };

  // The sockets use the low 16 bits of the port numbers, the keys show them in full.
  LocalOSCPort(std::int32_t bindPort, std::int32_t destinationPort, const std::string& host,
               std::shared_ptr<LocalOSCPortLink> clientLink);
  ~LocalOSCPort();

  // Starts the port's thread, which keeps a share of the port until it ends. When the system
  // refuses a thread the port stays silent until it is removed.
  static void Launch(const std::shared_ptr<LocalOSCPort>& port);

  std::uint32_t Run() override;
  // Takes the socket out of use, clears `running` and ends the thread's wait. Any thread that holds
  // a share.
  void Stop() override;

  // Sends bytes to the destination; a failure is a line on standard error. Any thread.
  void SendToDestination(const void* data, std::uint32_t size) CORVALINT_EXCLUDES(lock);

  // The device names the port by its destination key, the port names itself by its bind key.
  const std::string& DestinationKey() const { return destinationKey; }
  const std::string& BindKey() const { return bindKey; }

  // Kept for whoever looks at a port; nothing in the library reads these three.
  std::atomic<std::uint32_t> status{static_cast<std::uint32_t>(Status::notReady)};
  std::atomic<std::uint32_t> reportedStatus{0};  // what the device last reported of it
  std::atomic<bool> fresh{true};  // until a create request names a port that is there already

 private:
  int OpenSocket();
  int MakeSocket() CORVALINT_EXCLUDES(lock);
  bool Bind(int opened) CORVALINT_EXCLUDES(lock);
  int TryBind(int opened) CORVALINT_EXCLUDES(lock);
  void ForwardDatagrams(int opened);
  void ForwardWaiting(int opened);
  void Forward(std::size_t size);
  void Report(Status newStatus);
  void SendToDevice(const void* data, std::size_t size);
  bool DeviceIsCrowded();
  void CloseSocket() CORVALINT_REQUIRES(lock);
  void CloseHandle() CORVALINT_REQUIRES(lock);
  void Finish() CORVALINT_EXCLUDES(lock);

  const std::uint16_t localPort;
  const std::uint16_t remotePort;
  const std::string destinationKey;
  const std::string bindKey;
  std::uint32_t remoteAddress = 0;  // network byte order; constant after construction
  bool remoteAddressKnown = false;
  const std::shared_ptr<LocalOSCPortLink> link;
  // Ends the thread's wait, whether or not the socket can. Written once, by the port's thread
  // before it waits; closed by the destructor.
  std::atomic<int> waker{0};

  // Leaf: {read the socket, one send} against its end, {look at `running`, bind} against a stop.
  CriticalSection lock;
  // What the device's bytes are sent through: bound, or 0 while there is none. The handle is there
  // earlier and outlives it until the port's thread has left its wait: another socket may not get
  // its number under a waiting thread.
  std::atomic<int> socket{0};
  int handle CORVALINT_GUARDED_BY(lock) = 0;
  bool leaving CORVALINT_GUARDED_BY(lock) = false;     // noted in leaving_udp_ports.h
  bool keepSocket CORVALINT_GUARDED_BY(lock) = false;  // its bind failed: the destructor closes it

  // These belong to the port's thread.
  bool bound = false;  // the socket has a number, its own or a free one
  std::unique_ptr<char[]> datagram;
  std::unique_ptr<char[]> packet;
  std::uint64_t tooLong = 0;                  // datagrams that no frame can carry
  std::shared_ptr<LocalOSCPort> threadShare;  // set before the thread starts, dropped by it
};

}  // namespace corvalint
