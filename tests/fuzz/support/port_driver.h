#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/virtual_midi_api.h"

namespace corvalint::fuzz {

// The driver of virtual MIDI ports for the fuzz targets. A name that is taken is refused, as by the
// real one; a handle is checked at each use.
struct PortDriver {
  struct Port {
    std::string name;  // as the desktop shows it
    bool open = false;
    VirtualMidiCallback callback = nullptr;
    std::uintptr_t instance = 0;
  };
  struct Sent {
    std::uintptr_t port;  // 0 for a port that the driver refused
    std::string bytes;
  };

  bool refuses = false;
  std::vector<Port> ports;  // handles are places in it, counted from 1
  std::vector<Sent> sent;

  // Names of the open ports, sorted.
  std::vector<std::string> OpenNames() const;
  // A desktop program writes into an open port.
  void Write(std::uintptr_t handle, std::string bytes);
  // Forgets all ports; every one must have been closed.
  void Reset();
};

// The one driver, put in force by the first call.
PortDriver& ThePortDriver();

}  // namespace corvalint::fuzz
