#pragma once

#include <osc/OscReceivedElements.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace corvalint {

// Where a packet came from, as it is handed along with it. Nothing here asks for it, since a
// device's stream has one sender; a listener to datagrams would.
struct RemoteEndpoint {
  std::uint32_t address = 0;
  std::uint16_t port = 0;
};

// Whether a message is to exactly that address; one that only begins like it is another.
inline bool AddressIs(const osc::ReceivedMessage& message, const char* address) {
  return std::strcmp(message.AddressPattern(), address) == 0;
}

// Takes OSC packets apart: every message, also of bundles in bundles, is dispatched at once and in
// order, time tags are not waited for. Throws the OSC library's malformed-packet, -message and
// -bundle exceptions where the packet is wrong; what came before has been dispatched by then. For
// one thread.
class OscListener {
 public:
  virtual ~OscListener() = default;

  // `size` 1 to 0x7FFFFFFC. A packet that begins with '#' is a bundle.
  virtual void ProcessPacket(const char* data, std::size_t size, const RemoteEndpoint& endpoint);

 protected:
  virtual void ProcessBundle(const osc::ReceivedBundle& bundle, const RemoteEndpoint& endpoint);
  virtual void BundleStarted(const osc::ReceivedBundle& bundle) = 0;
  virtual void ProcessMessage(const osc::ReceivedMessage& message,
                              const RemoteEndpoint& endpoint) = 0;
  virtual void BundleFinished(const osc::ReceivedBundle& bundle) = 0;

 private:
  struct OpenBundle {
    osc::ReceivedBundle bundle;
    osc::ReceivedBundle::const_iterator next;
  };

  void Open(const osc::ReceivedBundle& bundle);

  // The bundles that the walk is inside of. A packet can nest thousands, more than a thread's stack
  // would hold as recursion.
  std::vector<OpenBundle> open;
};

}  // namespace corvalint
