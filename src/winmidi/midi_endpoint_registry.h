#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/critical_section.h"
#include "winmidi/midi_delegate.h"
#include "winmidi/midi_endpoint.h"

namespace corvalint {

using MidiSourcePointer = std::shared_ptr<MidiSourceEndpoint>;
using MidiDestinationPointer = std::shared_ptr<MidiDestinationEndpoint>;

// The desktop's MIDI endpoints, in the order in which the scan first found them: sources are winmm
// input devices, destinations are output devices. Lives until the process ends.
class MidiEndpointRegistry {
 public:
  // Prints "could not create _mutex\n" when the lock of the buffers' queues cannot be had as
  // wanted; it works all the same.
  MidiEndpointRegistry();

  // Shares of the lists as they are now. Any thread.
  std::vector<MidiSourcePointer> Sources() const CORVALINT_EXCLUDES(listLock);
  std::vector<MidiDestinationPointer> Destinations() const CORVALINT_EXCLUDES(listLock);

  std::int64_t SourceCount() const CORVALINT_EXCLUDES(listLock);
  std::int64_t DestinationCount() const CORVALINT_EXCLUDES(listLock);

  // The endpoint at a zero-based place; throws std::out_of_range "invalid vector<T> subscript" when
  // there is none.
  MidiSourcePointer SourceAt(std::int32_t position) const CORVALINT_EXCLUDES(listLock);
  MidiDestinationPointer DestinationAt(std::int32_t position) const CORVALINT_EXCLUDES(listLock);

  // The first endpoint with that id, or null.
  MidiSourcePointer SourceWithId(std::int32_t id) const CORVALINT_EXCLUDES(listLock);
  MidiDestinationPointer DestinationWithId(std::int32_t id) const CORVALINT_EXCLUDES(listLock);
  // Every destination with that id, in the order of the list.
  std::vector<MidiDestinationPointer> DestinationsWithId(std::int32_t id) const
      CORVALINT_EXCLUDES(listLock);

  // Switches the endpoint with that id on when it is off, and off when it is on; opens or closes
  // its device and lets the delegate announce it. An unknown id does nothing. The host's thread.
  void ToggleSource(std::int32_t id) CORVALINT_EXCLUDES(deviceLock);
  void ToggleDestination(std::int32_t id) CORVALINT_EXCLUDES(deviceLock);

  // What changes the lists. A change of the destinations is noted in `routeChanges`.
  void Append(MidiSourcePointer source) CORVALINT_REQUIRES(listLock);
  void Append(MidiDestinationPointer destination) CORVALINT_REQUIRES(listLock);
  // Takes the endpoints that the running scan has not found out of their lists, the last one first.
  // All of them or, when memory is short, none: one that got lost here would leave its device open.
  void TakeVanished(std::vector<MidiDestinationPointer>& lostDestinations,
                    std::vector<MidiSourcePointer>& lostSources) CORVALINT_REQUIRES(listLock);

  // Keeps buffers that a driver did not give back for ever, and the source that they name: a leak
  // instead of a corruption. Needs no memory.
  void KeepForever(std::unique_ptr<MidiInputBuffers> buffers) noexcept CORVALINT_EXCLUDES(listLock);

  // Held around the opening and closing of devices and around a scan. Never wanted by a callback or
  // by a holder of `clientLock` or `midiLock`, so its holder may wait for a callback's end.
  CriticalSection deviceLock;
  // Guards the queuing of input buffers, in the callback, against a close. Held around one call.
  CriticalSection bufferQueueLock;
  // The controller, once the first device connection has made it.
  std::atomic<MidiDelegate*> delegate{nullptr};

  // Leaf: guards the two lists and what is kept for ever. The scan marks what it finds in the lists
  // and changes them by the operations above.
  mutable CriticalSection listLock;
  std::vector<MidiSourcePointer> sources CORVALINT_GUARDED_BY(listLock);
  std::vector<MidiDestinationPointer> destinations CORVALINT_GUARDED_BY(listLock);
  // How many devices winmm had at the last scan.
  std::uint32_t inputsAtScan CORVALINT_GUARDED_BY(deviceLock) = 0;
  std::uint32_t outputsAtScan CORVALINT_GUARDED_BY(deviceLock) = 0;

 private:
  // The last that were kept; each holds those before.
  std::unique_ptr<MidiInputBuffers> kept CORVALINT_GUARDED_BY(listLock);
};

// The one registry, made on first use. Any thread.
MidiEndpointRegistry& GetMidiEndpointRegistry();

// Tells the delegate, if there is one, of each destination that is open and then of each source.
void AnnounceOpenEndpoints(MidiEndpointRegistry& registry);

}  // namespace corvalint
