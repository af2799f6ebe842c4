#include "winmidi/midi_scan.h"

#include <exception>
#include <string>
#include <vector>

#include "clients/usb_server.h"
#include "service/console.h"
#include "service/host_time.h"
#include "service/log.h"
#include "winmidi/midi_destination.h"
#include "winmidi/midi_source.h"

namespace corvalint {

namespace {

struct DesktopDevice {
  std::uint32_t index;
  std::string name;
  bool isOwnPort = false;  // one that this library publishes for a device
};

struct DesktopDevices {
  std::uint32_t outputCount;
  std::uint32_t inputCount;
  std::vector<DesktopDevice> outputs;
  std::vector<DesktopDevice> inputs;
};

// Devices whose capabilities cannot be had are left out for this scan. Drivers may be slow to
// answer, so no lock that MIDI waits for is held here.
DesktopDevices ReadDesktopDevices() {
  const WinMidiApi& winmm = Use<WinMidiApi>();
  DesktopDevices devices{winmm.midiOutGetNumDevs(), winmm.midiInGetNumDevs(), {}, {}};
  for (std::uint32_t i = 0; i < devices.outputCount; ++i) {
    MidiOutCaps caps{};
    if (winmm.midiOutGetDevCapsA(i, &caps, sizeof caps) == kMidiNoError) {
      devices.outputs.push_back({.index = i, .name = TextOf(caps.name)});
    }
  }
  for (std::uint32_t i = 0; i < devices.inputCount; ++i) {
    MidiInCaps caps{};
    if (winmm.midiInGetDevCapsA(i, &caps, sizeof caps) == kMidiNoError) {
      devices.inputs.push_back({.index = i, .name = TextOf(caps.name)});
    }
  }
  return devices;
}

class OwnPortsStayKnown {
 public:
  explicit OwnPortsStayKnown(UsbServer& usbServer) : server(usbServer) {
    server.BeginDesktopScan();
  }
  ~OwnPortsStayKnown() { server.EndDesktopScan(); }
  OwnPortsStayKnown(const OwnPortsStayKnown&) = delete;
  OwnPortsStayKnown& operator=(const OwnPortsStayKnown&) = delete;

 private:
  UsbServer& server;
};

// The unique id is the low half of the moment plus or minus the device's number. That sources and
// destinations differ in sign is on purpose.
std::int32_t NewDestinationId(std::uint32_t index) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(HostTimeNanoseconds()) + index);
}
std::int32_t NewSourceId(std::uint32_t index) {
  return static_cast<std::int32_t>(index - static_cast<std::uint32_t>(HostTimeNanoseconds()));
}

// Two devices of the same name map to one record, the first match; the second device's number
// replaces the first's.
template <class List>
bool MarkFound(const List& list, const DesktopDevice& device) {
  for (const auto& endpoint : list) {
    if (endpoint->name != device.name) continue;
    endpoint->found = true;
    endpoint->deviceIndex = device.index;
    return true;
  }
  return false;
}

void Fill(MidiEndpoint& endpoint, const DesktopDevice& device) {
  endpoint.name = device.name;
  endpoint.found = true;
  endpoint.deviceIndex = device.index;
}

void MarkOwnPorts(std::vector<DesktopDevice>& devices, UsbServer& server) {
  for (DesktopDevice& device : devices) device.isOwnPort = server.AnyManagerOwns(device.name);
}

void MatchOutputs(MidiEndpointRegistry& registry, const std::vector<DesktopDevice>& outputs,
                  ConsoleLines& lines) CORVALINT_REQUIRES(registry.listLock) {
  for (const DesktopDevice& device : outputs) {
    if (device.isOwnPort) {
      lines.Add("is virtual destination: %s\n", device.name.c_str());
      continue;
    }
    if (MarkFound(registry.destinations, device)) continue;
    const auto destination = std::make_shared<MidiDestinationEndpoint>();
    Fill(*destination, device);
    destination->uniqueId = NewDestinationId(device.index);
    registry.Append(destination);
    lines.Add("found destination with unique_id: %d || %s\n", destination->uniqueId,
              device.name.c_str());
  }
}

void MatchInputs(MidiEndpointRegistry& registry, const std::vector<DesktopDevice>& inputs,
                 ConsoleLines& lines) CORVALINT_REQUIRES(registry.listLock) {
  for (const DesktopDevice& device : inputs) {
    if (device.isOwnPort) {
      lines.Add("virtual source: %s\n", device.name.c_str());
      continue;
    }
    lines.Add("NOT a virtual source: %s\n", device.name.c_str());
    if (MarkFound(registry.sources, device)) continue;
    const auto source = std::make_shared<MidiSourceEndpoint>(registry);
    Fill(*source, device);
    source->uniqueId = NewSourceId(device.index);
    lines.Add("found source with unique_id: %d || %s\n", source->uniqueId, device.name.c_str());
    registry.Append(source);
  }
}

// What goes wrong with one vanished device is no reason to leave the next one open.
void DropDestination(MidiDestinationEndpoint& destination, UsbServer& server) {
  try {
    CloseMidiDestination(destination);
    ConsolePrint("sending remove_remote_destination with unique_id: %d || %s\n",
                 destination.uniqueId, destination.name.c_str());
    // Straight to the devices, not through the delegate, and also for one that never was on.
    server.SendRemoveRemoteDestination(destination.name, destination.uniqueId, "");
  } catch (const std::exception& failure) {
    LogError("vanished MIDI output: %s", failure.what());
  }
}

void DropSource(MidiEndpointRegistry& registry, const MidiSourcePointer& source, UsbServer& server)
    CORVALINT_REQUIRES(registry.deviceLock) {
  try {
    CloseMidiSource(registry, source, false);
    ConsolePrint("sending remove_remote_source with unique_id: %d || %s\n", source->uniqueId,
                 source->name.c_str());
    server.SendRemoveRemoteSource(source->name, source->uniqueId, "");
  } catch (const std::exception& failure) {
    LogError("vanished MIDI input: %s", failure.what());
  }
}

void ClearFound(MidiEndpointRegistry& registry) CORVALINT_REQUIRES(registry.listLock) {
  for (const auto& destination : registry.destinations) destination->found = false;
  for (const auto& source : registry.sources) source->found = false;
}

void Scan(MidiEndpointRegistry& registry, UsbServer& server, CriticalSection& midiLock) {
  // Two scans never run into each other, nor a scan and a toggle.
  CriticalSectionScope holdDevices(registry.deviceLock);
  const OwnPortsStayKnown known(server);
  DesktopDevices devices = ReadDesktopDevices();
  registry.outputsAtScan = devices.outputCount;
  registry.inputsAtScan = devices.inputCount;

  std::vector<MidiDestinationPointer> lostDestinations;
  std::vector<MidiSourcePointer> lostSources;
  ConsoleLines lines;
  {
    // Names are compared while no device changes its published endpoints.
    CriticalSectionScope holdPorts(midiLock);
    MarkOwnPorts(devices.outputs, server);
    MarkOwnPorts(devices.inputs, server);
    // All in one piece: a host that asks meanwhile meets the lists before the scan or after it.
    CriticalSectionScope hold(registry.listLock);
    ClearFound(registry);
    MatchOutputs(registry, devices.outputs, lines);
    MatchInputs(registry, devices.inputs, lines);
    registry.TakeVanished(lostDestinations, lostSources);
  }
  lines.Print();

  // Closing waits for callbacks, and the messages need `clientLock`: neither under `midiLock`.
  for (const auto& destination : lostDestinations) DropDestination(*destination, server);
  for (const auto& source : lostSources) DropSource(registry, source, server);
}

}  // namespace

void ScanMidiDevices(MidiEndpointRegistry& registry) {
  UsbServer* const server = theUsbServer;
  if (server == nullptr) return;
  CriticalSection* const midiLock = server->midiLock.load(std::memory_order_acquire);
  if (midiLock == nullptr) return;
  try {
    Scan(registry, *server, *midiLock);
  } catch (const std::exception& failure) {
    // The next scan is another chance.
    LogError("MIDI scan failed: %s", failure.what());
  }
}

}  // namespace corvalint
