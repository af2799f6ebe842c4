#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/winmm_api.h"
#include "soak/sightings.h"

namespace corvalint::soak {

// A winmm for runs without end, installed for as long as it lives; one at a time. It keeps no log
// and forgets what was closed. It behaves as the real one where it matters: a reset gives the
// queued buffers back through the callback, a reset or close waits for running callbacks, a close
// with queued buffers is refused, and an output keeps its block for a while. It complains about
// closed handles, unprepared headers and headers queued twice. Any thread.
class SmallWinmm {
 public:
  using Bytes = std::vector<std::uint8_t>;
  using Names = std::vector<std::string>;

  // `publishedPorts` gives the names of the driver's ports, which stand in both lists too.
  explicit SmallWinmm(std::function<Names()> publishedPorts);
  ~SmallWinmm();
  SmallWinmm(const SmallWinmm&) = delete;
  SmallWinmm& operator=(const SmallWinmm&) = delete;

  void Plug(Names inputs, Names outputs);
  // Whether the next open of any device fails.
  void FailNextOpen(bool fails);

  // Plays into one of the inputs that are open and started, `pick` tells which; false when there is
  // none, or none with a buffer.
  bool PlayShort(std::uint64_t pick, std::uint32_t packed);
  bool PlayLong(std::uint64_t pick, const Bytes& bytes);

  // Devices that are open now.
  std::size_t OpenDevices() const;
  // What was sent to any output.
  Sightings& Sent() { return sent; }

 private:
  struct Device;
  struct Table;
  using DevicePointer = std::shared_ptr<Device>;

  static SmallWinmm& Current();
  Names Present(const Names& plugged) const;
  DevicePointer Find(void* handle, const char* function);
  DevicePointer Pick(std::uint64_t pick, bool withBuffer);
  MidiResult Open(void** handle, std::uint32_t number, bool input, std::uintptr_t callback,
                  std::uintptr_t instance);
  MidiResult Close(void* handle);
  MidiResult ResetInput(void* handle);
  MidiResult ResetOutput(void* handle);
  MidiResult Start(void* handle, bool started);
  MidiResult Prepare(void* handle, MidiHeader* header);
  MidiResult Unprepare(void* handle, MidiHeader* header);
  MidiResult AddBuffer(void* handle, MidiHeader* header);
  MidiResult LongMessage(void* handle, MidiHeader* header);
  void RunCallback(Device& device, std::uint32_t message, std::uintptr_t parameter1);

  const std::function<Names()> ports;
  mutable std::mutex mutex;
  std::condition_variable callbackEnded;
  Names inputs, outputs;
  std::map<void*, DevicePointer> devices;
  std::uintptr_t lastHandle = 0;
  std::uint64_t blocks = 0;
  bool failNextOpen = false;
  Sightings sent;
};

}  // namespace corvalint::soak
