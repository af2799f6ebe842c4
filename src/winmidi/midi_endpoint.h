#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/critical_section.h"
#include "platform/winmm_api.h"

namespace corvalint {

class MidiEndpointRegistry;
struct MidiSourceEndpoint;

inline constexpr std::size_t kInputBufferCount = 4;
inline constexpr std::uint32_t kInputBufferSize = 65536;

// One MIDI device of the desktop as the host and the devices see it. Shared by the registry's list
// and by whoever works with it; a share outlives its place in the list.
struct MidiEndpoint {
  bool found = false;  // mark of the running scan; device lock and list lock
  std::atomic<bool> off{true};
  std::atomic<bool> available{true};  // false after a failed open
  std::string name;                   // constant once listed; at most 32 bytes, ANSI code page
  std::atomic<std::uint32_t> deviceIndex{0};  // winmm's number at the last scan
  std::int32_t uniqueId = 0;                  // constant once listed
  // winmm's handle; null while closed. A source keeps the stale handle of a failed open, on
  // purpose, but is then not available.
  std::atomic<void*> handle{nullptr};

  MidiEndpoint() = default;
  MidiEndpoint(const MidiEndpoint&) = delete;
  MidiEndpoint& operator=(const MidiEndpoint&) = delete;

  // On, with its device open. While an open is being tried again, a stale handle does not count.
  bool IsOpen() const { return !off && available && handle != nullptr; }
  // What a failed open leaves. Device lock held.
  void MarkUnavailable() {
    off = true;
    available = false;
  }
};

// The four buffers that a source queues at its driver, which owns them while they are queued.
struct MidiInputBuffers {
  MidiInputBuffers();
  std::array<MidiHeader, kInputBufferCount> headers{};
  std::vector<char> data;
  // Used once the driver has kept the buffers: the source that it may still call back with, and
  // those that were kept before. They stand here so that keeping needs no memory.
  std::shared_ptr<MidiSourceEndpoint> usedBy;
  std::unique_ptr<MidiInputBuffers> keptBefore;
};

struct MidiSourceEndpoint : MidiEndpoint {
  explicit MidiSourceEndpoint(MidiEndpointRegistry& owner)
      : buffers(std::make_unique<MidiInputBuffers>()), registry(owner) {}

  // Replaced under the device lock and the registry's `bufferQueueLock`, one of which its users
  // hold. Null after a driver has kept them, until the next open; `closing` is set as long.
  std::unique_ptr<MidiInputBuffers> buffers;
  MidiEndpointRegistry& registry;
  // Set before the device is stopped, so that the callback queues no buffer again. Written under
  // `bufferQueueLock`, which the callback holds while it queues.
  std::atomic<bool> closing{false};
};

// A block of bytes that the driver reads from until it gives the header back.
struct MidiOutputBlock {
  // An empty message needs an address too.
  MidiOutputBlock() { data.reserve(1); }

  MidiHeader header{};
  std::vector<char> data;
};

struct MidiDestinationEndpoint : MidiEndpoint {
  // One message on its way out. Its holder may wait as long as a system-exclusive message takes on
  // the wire; whoever closes the device sets `closing` first.
  CriticalSection outputLock;
  // Null until it is needed, and again when a driver has kept it for ever.
  std::unique_ptr<MidiOutputBlock> block CORVALINT_GUARDED_BY(outputLock);
  std::atomic<bool> sending{false};
  std::atomic<bool> closing{false};
};

// A device's name from its capabilities: up to the first zero byte, or all 32.
std::string TextOf(const char (&name)[32]);

}  // namespace corvalint
