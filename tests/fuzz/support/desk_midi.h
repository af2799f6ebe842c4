#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/winmm_api.h"

namespace corvalint::fuzz {

// winmm for the fuzz targets: devices by number, one handle an open device, checked at each use. A
// driver that holds buffers refuses a close, as real ones do.
struct DeskMidi {
  // What goes wrong from now on.
  bool openFails = false;
  int preparesLeft = -1;  // buffers that can be prepared before one fails; -1 without an end
  bool startFails = false;
  bool capsFail = false;
  std::uint32_t inputs = 0;  // how many devices there are
  std::uint32_t outputs = 0;
  std::string nameInCaps;

  // Blocks that open outputs were sent, and the numbers of their devices.
  std::vector<std::string> sent;
  std::vector<std::uint32_t> sentTo;

  // Open handles, inputs and outputs.
  int OpenHandles() const;
  // Bytes that arrive at an open input: in one message packed as winmm packs it, or in the next
  // buffer of the driver; false when the driver has none.
  void Short(void* handle, std::uint32_t packed);
  bool Long(void* handle, const std::string& bytes);

  // Forgets all devices and makes everything work.
  void Reset(std::uint32_t inputCount, std::uint32_t outputCount);
};

// The one desk, put in force by the first call.
DeskMidi& TheDeskMidi();

}  // namespace corvalint::fuzz
