#include "windows/support/bridge.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace corvalint::windows_test {

namespace {

void Must(bool happened, const std::string& what) {
  if (!happened) throw std::runtime_error("did not happen in time: " + what);
}

harness::DeskOptions Closed(harness::DeskOptions options) {
  options.open = false;
  return options;
}

}  // namespace

PluggedDevice::PluggedDevice(harness::DeskControl& deskControl, std::string deviceName,
                             device::DeviceOptions options)
    : control(deskControl), name(std::move(deviceName)), app(std::move(options)) {
  harness::DeviceSetup setup;
  setup.identifier = name;
  setup.tcpPort = app.Port();
  setup.connectionId = app.Port();  // any number but 0, which means that there is none
  control.SetDevice(name, setup);
}

void PluggedDevice::Attach() {
  control.Attach(name);
  Must(app.WaitForStream(++streams, kPatience), "stream to " + name);
}

void PluggedDevice::Detach() {
  control.Detach(name);
  Must(control.WaitForNotifications(kPatience), "departure of " + name);
}

harness::Port PluggedDevice::PublishSource(std::string_view endpoint, std::int32_t id) {
  Must(app.AnnounceSource(endpoint, id), "announcement");
  const auto port = control.WaitForPort(harness::Widened(endpoint), kPatience);
  Must(port.has_value(), "port");
  Must(Flush(), "handling of the announcement");
  return *port;
}

harness::Port PluggedDevice::PublishDestination(std::string_view endpoint, std::int32_t id) {
  Must(app.AnnounceDestination(endpoint, id), "announcement");
  const auto port = control.WaitForPort(harness::Widened(endpoint), kPatience);
  Must(port.has_value(), "port");
  Must(Flush(), "handling of the announcement");
  return *port;
}

std::vector<device::MidiMessage> PluggedDevice::Midi() const {
  std::vector<device::MidiMessage> midi;
  for (const auto& received : app.Record().MessagesTo("/midi")) {
    if (auto message = device::AsMidi(received.message)) midi.push_back(std::move(*message));
  }
  return midi;
}

bool PluggedDevice::WaitForMidi(std::size_t count) const {
  return app.Record().WaitFor(
      [count](const device::DeviceRecord::Messages& messages) {
        return static_cast<std::size_t>(
                   std::count_if(messages.begin(), messages.end(), [](const auto& received) {
                     return received.message.address == "/midi";
                   })) >= count;
      },
      kPatience);
}

bool PluggedDevice::WaitForAnnouncement(std::string_view address, std::string_view endpoint,
                                        std::int32_t id) const {
  return app.Record().WaitFor(
      [&](const device::DeviceRecord::Messages& messages) {
        return std::any_of(messages.begin(), messages.end(), [&](const auto& received) {
          const device::OscMessage& message = received.message;
          return message.address == address && message.typeTags == "si" &&
                 message.template Argument<std::string>(0) == endpoint &&
                 message.template Argument<std::int32_t>(1) == id;
        });
      },
      kPatience);
}

bool PluggedDevice::Flush() { return app.AlignClockAndWait(0, kPatience); }

Bridge::Bridge(const std::vector<std::string>& inputs, const std::vector<std::string>& outputs,
               const harness::DeskOptions& options)
    : desk(Closed(options)) {
  for (const std::string& name : inputs) inputIds[name] = Control().AddInput(name);
  for (const std::string& name : outputs) outputIds[name] = Control().AddOutput(name);
  Control().Open();
  Must(GetHost().WaitUntilReady(kPatience), "start of the host");
  if (options.mobileDevice) {
    Must(Control().WaitForCall("AMDeviceNotificationSubscribe", 1, kPatience), "first scan");
  }
}

std::int32_t Bridge::SwitchSourceOn(std::string_view name) {
  const auto source = GetHost().WaitForSource(name, kPatience);
  Must(source.has_value(), "source");
  GetHost().ToggleSource(source->id);
  return source->id;
}

std::int32_t Bridge::SwitchDestinationOn(std::string_view name) {
  const auto destination = GetHost().WaitForDestination(name, kPatience);
  Must(destination.has_value(), "destination");
  GetHost().ToggleDestination(destination->id);
  return destination->id;
}

void Bridge::Inject(std::string_view input, const std::vector<harness::Bytes>& messages,
                    const harness::Pacing& pacing) {
  std::vector<harness::InputItem> items;
  items.reserve(messages.size());
  for (const harness::Bytes& message : messages) items.push_back(harness::ItemOf(message));
  const int job = Control().Inject(Input(input), items, pacing);
  const auto result = Control().WaitForJob(job, kPatience);
  Must(result.has_value() && result->dropped == 0, "injection");
}

std::unique_ptr<PluggedDevice> Bridge::Plug(const std::string& name,
                                            device::DeviceOptions options) {
  auto plugged = std::make_unique<PluggedDevice>(Control(), name, std::move(options));
  plugged->Attach();
  return plugged;
}

}  // namespace corvalint::windows_test
