#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "corvalint_wrapper.h"

namespace corvalint::host {

// The exports that exist once for sources and once for destinations, for one of the two.
struct SideCalls {
  decltype(&corvalintServerGetCountOfSources) count = nullptr;
  decltype(&get_unique_id_source) idAt = nullptr;
  decltype(&get_source_name_length) nameLength = nullptr;
  decltype(&corvalintServerGetActiveMIDISourceName) nameByte = nullptr;
  decltype(&set_source_status) toggle = nullptr;
  decltype(&get_source_status) status = nullptr;
  decltype(&get_source_available) available = nullptr;
};

// All twenty exports of the library, bound by name. Every pointer is set once binding succeeded.
struct Wrapper {
  decltype(&corvalintServerStart) start = nullptr;
  decltype(&corvalintServerWiFiClients) wifiClients = nullptr;
  decltype(&corvalintServerUSBClients) usbClients = nullptr;
  decltype(&corvalintServerScriptActive) scriptActive = nullptr;
  decltype(&corvalintServerActiveConnections) activeConnections = nullptr;
  decltype(&initliaze_port_control) portControl = nullptr;
  SideCalls sources;
  SideCalls destinations;
};

// How many of the system's things this process holds.
struct ProcessCounts {
  std::int64_t handles = 0;
  std::int64_t threads = 0;
};

// A terminal that is drawn upon as a whole. Its end gives the terminal back as it was.
class Screen {
 public:
  virtual ~Screen() = default;
  virtual int Columns() = 0;
  virtual int Rows() = 0;
  // Shows these lines from the top, each in UTF-8 and no wider than the screen, and nothing else.
  virtual void Draw(const std::vector<std::string>& lines) = 0;
};

// One MIDI input of this desktop.
struct MidiInput {
  std::string nameBytes;  // in the ANSI code page, as the library gives names; empty: unknown
  std::string name;       // in UTF-8
};

// A MIDI input while this program has it open to count what arrives. Its end closes it.
class InputEar {
 public:
  virtual ~InputEar() = default;
  // Why it could not be opened, a result of winmm; 0 if it could.
  virtual std::uint32_t Refused() const = 0;
  // False once the device behind it has gone, though another of its name may be there by now.
  virtual bool Alive() const = 0;
  // Messages that have arrived so far, SysEx not among them.
  virtual std::uint64_t Messages() const = 0;
};

// What the host needs from the system. The texts it takes and gives are UTF-8 but for AnsiToUtf8's
// argument, which is bytes in the ANSI code page.
struct System {
  std::function<std::string(const std::string&)> ansiToUtf8;
  std::function<ProcessCounts()> processCounts;  // Throws std::runtime_error if it cannot tell.
  std::function<void(int milliseconds)> sleep;
  // True once if the person pressed Ctrl-C since it was last asked.
  std::function<bool()> takeInterrupt;
  // Columns of the terminal that standard output is; 0 if it is none.
  std::function<int()> columns;
  std::int64_t processId = 0;
  // Takes the terminal that standard output is; null if it is none. Empty: there is none.
  std::function<std::unique_ptr<Screen>()> openScreen;
  // What the library has printed since this was last asked, in UTF-8. Empty: it is not kept.
  std::function<std::string()> takeLibraryLines;
  // The MIDI inputs of this desktop by their numbers. Empty: no messages are counted.
  std::function<std::vector<MidiInput>()> listInputs;
  // Opens the input with that number; null if it is not the expected one any more.
  std::function<std::unique_ptr<InputEar>(std::size_t number, const MidiInput& expected)> openInput;
};

}  // namespace corvalint::host
