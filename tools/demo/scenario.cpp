#include "demo/scenario.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <stdexcept>

#include "demo/waiting.h"

namespace corvalint::demo {

namespace fs = std::filesystem;

namespace {

using Short = std::chrono::milliseconds;

constexpr std::chrono::seconds kLongestEnd{10};

std::string Padded(std::string_view text, std::size_t width) {
  std::string padded(text);
  padded.resize(std::max(width, padded.size()), ' ');
  return padded;
}

std::string EndpointLine(bool on, std::string_view kind, std::string_view name,
                         const std::string& remark = {}) {
  const std::string line = std::string(on ? "  on   " : "  off  ") + Padded(kind, 17) + "  ";
  return remark.empty() ? line + std::string(name) : line + Padded(name, 13) + remark;
}

// "1.2 s" since then.
std::string SecondsSince(std::chrono::steady_clock::time_point start) {
  const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
  char text[32];
  std::snprintf(text, sizeof(text), "%.1f s", passed.count());
  return text;
}

}  // namespace

void Scenario::Start() {
  const auto began = std::chrono::steady_clock::now();
  StartDesk();
  PlugDevices();
  SwitchOn();
  Publish();
  progress.Line("  ready after " + SecondsSince(began));
  ShowEndpoints();
}

void Scenario::StartDesk() {
  progress.Line("Starting the host with the DLL at the simulated desk, under Wine");
  const fs::path product = harness::WindowsBuildTree() / "corvalint_wrapper.dll";
  if (!fs::exists(product)) {
    throw std::runtime_error("there is no \"" + product.string() +
                             "\"; build it with ./dev build, or name its folder in the "
                             "environment variable CORVALINT_WINDOWS_DIR");
  }
  desk = std::make_unique<harness::Desk>();
  keyboardInput = Control().AddInput(kKeyboard);
  Control().AddInput("Pedals");
  synthesizerOutput = Control().AddOutput(kSynthesizer);
  Control().Open();
  Await("the host to start the DLL",
        [&](Short time) { return desk->GetHost().WaitUntilReady(time); });
  Await("the DLL to look for devices", [&](Short time) {
    return Control().WaitForCall("AMDeviceNotificationSubscribe", 1, time);
  });
}

void Scenario::PlugDevices() {
  for (const char* name : {"iPad", "iPhone"}) {
    devices.push_back(std::make_unique<NamedDevice>(name));
    NamedDevice& plugged = *devices.back();
    harness::DeviceSetup setup;
    setup.identifier = "simulated-" + plugged.name;
    setup.displayName = plugged.name;
    setup.tcpPort = plugged.app.Port();
    setup.connectionId = plugged.app.Port();  // any number but 0, which means that there is none
    Control().SetDevice(plugged.name, setup);
    Control().Attach(plugged.name);
    Await("the DLL to connect to the " + plugged.name,
          [&](Short time) { return plugged.app.WaitForStream(1, time); });
    if (!plugged.app.AlignClockAndWait(3, harness::kPatience)) {
      throw std::runtime_error("the DLL did not answer the clock of the " + plugged.name);
    }
    progress.Line("  " + plugged.name + " connected, clocks aligned");
  }
}

void Scenario::SwitchOn() {
  harness::Host& host = desk->GetHost();
  std::optional<harness::Endpoint> found;
  Await("the keyboard in the list of sources",
        [&](Short time) { return (found = host.WaitForSource(kKeyboard, time)).has_value(); });
  keyboardId = found->id;
  host.ToggleSource(keyboardId);
  Await("the synthesizer in the list of destinations", [&](Short time) {
    return (found = host.WaitForDestination(kSynthesizer, time)).has_value();
  });
  synthesizerId = found->id;
  host.ToggleDestination(synthesizerId);
  for (const auto& plugged : devices) {
    AwaitAnnouncement(*plugged, "/add_remote_source", kKeyboard, keyboardId);
    AwaitAnnouncement(*plugged, "/add_remote_destination", kSynthesizer, synthesizerId);
  }
  Await("the keyboard to be started",
        [&](Short time) { return Control().WaitForInputStarted(keyboardInput, time); });
  Await("the synthesizer to be opened",
        [&](Short time) { return Control().WaitForOutputOpen(synthesizerOutput, time); });
}

void Scenario::Publish() {
  if (!IPad().app.AnnounceSource(kSequencer, kSequencerId)) {
    throw std::runtime_error("the iPad lost its connection");
  }
  std::optional<harness::Port> port;
  Await("the iPad's port on the desktop", [&](Short time) {
    return (port = Control().WaitForPort(harness::Widened(kSequencer), time)).has_value();
  });
  sequencerPort = *port;
  AwaitAnnouncement(IPhone(), "/add_remote_source", kSequencer, kSequencerId);
}

void Scenario::AwaitAnnouncement(const NamedDevice& device, std::string_view address,
                                 std::string_view name, std::int32_t id) {
  const auto matches = [&](const device::ReceivedMessage& received) {
    const device::OscMessage& message = received.message;
    return message.address == address && message.typeTags == "si" &&
           message.Argument<std::string>(0) == name && message.Argument<std::int32_t>(1) == id;
  };
  Await("the " + device.name + " to be told of " + std::string(name), [&](Short time) {
    return device.app.Record().WaitFor(
        [&](const device::DeviceRecord::Messages& messages) {
          return std::any_of(messages.begin(), messages.end(), matches);
        },
        time);
  });
}

void Scenario::ShowEndpoints() {
  progress.Line("Connected: iPad, iPhone (" + std::to_string(desk->GetHost().Clients()) +
                " clients of the DLL)");
  progress.Line("Endpoints:");
  for (const harness::Endpoint& source : desk->GetHost().Sources()) {
    progress.Line(EndpointLine(source.on, "Windows input", source.name));
  }
  for (const harness::Endpoint& destination : desk->GetHost().Destinations()) {
    progress.Line(EndpointLine(destination.on, "Windows output", destination.name));
  }
  for (const harness::Port& port : Control().Ports()) {
    const std::string name(port.name.begin(), port.name.end());
    progress.Line(EndpointLine(port.open, "iPad's source", name, "a port on the desktop"));
  }
}

void Scenario::Flush(NamedDevice& device) {
  if (!device.app.AlignClockAndWait(0, harness::kPatience)) {
    CheckInterrupted();
    throw std::runtime_error("the DLL did not answer the " + device.name);
  }
}

void Scenario::Finish() {
  for (const auto& plugged : devices) Control().Detach(plugged->name);
  Await("the DLL to let the devices go",
        [&](Short time) { return Control().WaitForNotifications(time); });
  const std::optional<int> code = desk->GetHost().Quit(kLongestEnd);
  if (!code) throw std::runtime_error("the host did not end when it was asked to");
  if (*code != 0) throw std::runtime_error("the host ended with code " + std::to_string(*code));
}

std::vector<std::string> Scenario::Complaints() {
  std::vector<std::string> complaints;
  for (const std::string& violation : Control().Violations()) {
    complaints.push_back("at the desk: " + violation);
  }
  for (const auto& plugged : devices) {
    const std::uint64_t violations = plugged->app.Record().Counters().violations;
    if (violations == 0) continue;
    complaints.push_back("the " + plugged->name + " received what no device must be sent, " +
                         std::to_string(violations) + " times");
  }
  return complaints;
}

std::optional<int> Scenario::HostEnded() {
  constexpr std::chrono::milliseconds kUntilItShows{500};  // its connections end a little earlier
  return desk ? desk->GetHost().GetProcess().WaitForExit(kUntilItShows) : std::nullopt;
}

std::string Scenario::NewConsoleText() {
  const std::string console = desk ? desk->GetHost().Console() : std::string();
  const std::string text = console.substr(consoleShown);
  consoleShown = console.size();
  return text;
}

void Scenario::SaveEvidence(const fs::path& folder) {
  const auto save = [&folder](const char* name, const std::string& text) {
    std::ofstream(folder / name, std::ios::binary) << text;
  };
  save("pellora.log", desk->Log());
  save("console.txt", desk->GetHost().Console());
  save("host.txt", desk->GetHost().GetProcess().Errors());
  std::string events;
  for (const std::string& event : Control().Events()) events += event + "\n";
  save("desk.txt", events);
}

}  // namespace corvalint::demo
