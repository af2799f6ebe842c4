#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace corvalint {

// A source plays MIDI, a destination accepts it, both seen from the device that has the endpoint.
enum class EndpointKind { source, destination };

// An endpoint that a device has published, as the other devices are told of it.
struct PublishedEndpoint {
  EndpointKind kind;
  std::string name;
  std::uint32_t id;
};

// What the senders need to know of a device's manager of published endpoints
// (ExternalMidiManager). `OwnsEndpoint` and `SendMidiToDestination` do not balance the holds of
// `midiLock` by themselves; every caller puts a HoldScope of that lock around each call.
class EndpointOwner {
 public:
  // Whether the manager publishes an endpoint of that name (empty owner key; the call then leaves
  // the calling thread with one hold of `midiLock` more), or carries ports of that key (key not
  // empty; the name is not compared).
  virtual bool OwnsEndpoint(const std::string& ownerKey, const std::string& endpointName) = 0;
  // False when OwnsEndpoint is false for that key whatever the name and whatever is published.
  // Takes no lock.
  virtual bool MayOwn(const std::string& /*ownerKey*/) const { return true; }
  // The hook for MIDI that is addressed to an endpoint of another device. It sends nothing, and
  // gives up one hold of `midiLock`, or two when the id is one of its destinations.
  virtual void SendMidiToDestination(std::string_view name, std::uint32_t id) = 0;

  // What the device has published, from the last port to the first, destination before source.
  virtual std::vector<PublishedEndpoint> PublishedEndpoints() = 0;

 protected:
  ~EndpointOwner() = default;
};

}  // namespace corvalint
