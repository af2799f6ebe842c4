#include "demo/ways.h"

#include <algorithm>
#include <stdexcept>

#include "demo/waiting.h"
#include "device/raw_time.h"

namespace corvalint::demo {

namespace {

using Short = std::chrono::milliseconds;

}  // namespace

DeviceWay::DeviceWay(Scenario& stage, Sink where)
    : scenario(stage),
      sink(where),
      name(sink == Sink::kOutput ? Scenario::kSynthesizer : Scenario::kSequencer),
      id(sink == Sink::kOutput ? stage.SynthesizerId() : Scenario::kSequencerId) {}

std::string DeviceWay::Title() const {
  return sink == Sink::kOutput ? "iPad to the Windows output " + name
                               : "iPad to its own port " + name + " on the desktop";
}

std::vector<std::string> DeviceWay::Receivers() const {
  return {sink == Sink::kOutput ? "iPad > " + name : "iPad > port " + name};
}

void DeviceWay::Clear() {
  Settle();
  scenario.Control().ForgetRecorded();
  sent.clear();
}

void DeviceWay::Send(const harness::Bytes& message) {
  sent.push_back({device::RawNow(), message});
  if (!scenario.IPad().app.SendMidi(name, id, message)) {
    CheckInterrupted();
    throw std::runtime_error("the iPad lost its connection while it played");
  }
}

void DeviceWay::SendAll(const device::Song& song, std::size_t rounds,
                        const std::function<void()>& tick) {
  constexpr std::size_t kBetweenTicks = 64;
  device::SimulatedDevice& app = scenario.IPad().app;
  sent.reserve(rounds * song.events.size());
  for (std::size_t round = 0; round < rounds; ++round) {
    for (const device::SongEvent& event : song.events) {
      Send(event.bytes);
      if (app.Queued() > 0) {
        Await("the DLL to take what the iPad plays", [&](Short time) {
          tick();
          return app.WaitUntilSent(time);
        });
      }
      if (sent.size() % kBetweenTicks == 0) tick();
    }
  }
}

void DeviceWay::Settle() { scenario.Flush(scenario.IPad()); }

std::size_t DeviceWay::ReceivedCount(std::size_t /*receiver*/) {
  harness::DeskControl& control = scenario.Control();
  return sink == Sink::kOutput ? control.OutputMessageCount(scenario.SynthesizerOutput())
                               : control.PortMessageCount(scenario.SequencerPort().id);
}

std::vector<harness::Recorded> DeviceWay::Received(std::size_t /*receiver*/) {
  harness::DeskControl& control = scenario.Control();
  return sink == Sink::kOutput ? control.OutputMessages(scenario.SynthesizerOutput())
                               : control.PortMessages(scenario.SequencerPort().id);
}

std::string InputWay::Title() const {
  return "the Windows input " + std::string(Scenario::kKeyboard) + " to the iPad and the iPhone";
}

std::vector<std::string> InputWay::Receivers() const {
  const std::string from = std::string(Scenario::kKeyboard) + " > ";
  return {from + scenario.IPad().name, from + scenario.IPhone().name};
}

NamedDevice& InputWay::Receiver(std::size_t receiver) {
  return receiver == 0 ? scenario.IPad() : scenario.IPhone();
}

void InputWay::Clear() {
  Settle();
  scenario.Control().ForgetRecorded();
  messages.clear();
  countsBefore.clear();
  for (std::size_t receiver : {0u, 1u}) {
    device::DeviceRecord& record = Receiver(receiver).app.Record();
    record.Clear();
    countsBefore.push_back(record.Counters().messagesReceived);
  }
}

void InputWay::Send(const harness::Bytes& message) {
  harness::Pacing pacing;
  pacing.stamps = true;
  messages.push_back(message);
  job = scenario.Control().Inject(scenario.KeyboardInput(), {harness::ItemOf(message)}, pacing);
}

void InputWay::SendAll(const device::Song& song, std::size_t rounds,
                       const std::function<void()>& tick) {
  std::vector<harness::InputItem> items;
  for (const device::SongEvent& event : song.events) items.push_back(harness::ItemOf(event.bytes));
  for (std::size_t round = 0; round < rounds; ++round) {
    for (const device::SongEvent& event : song.events) messages.push_back(event.bytes);
  }
  harness::Pacing pacing;
  pacing.stamps = true;
  pacing.repeat = rounds;
  job = scenario.Control().Inject(scenario.KeyboardInput(), items, pacing);
  AwaitJob(tick);
}

void InputWay::AwaitJob(const std::function<void()>& tick) {
  if (job == 0) return;
  Await("the DLL to take what the keyboard plays", [&](Short time) {
    tick();
    return scenario.Control().WaitForJob(job, time).has_value();
  });
}

void InputWay::Settle() {
  AwaitJob([] {});
  for (std::size_t receiver : {0u, 1u}) scenario.Flush(Receiver(receiver));
}

std::size_t InputWay::SentCount() {
  return scenario.Control().InputStamps(scenario.KeyboardInput()).size();
}

std::size_t InputWay::ReceivedCount(std::size_t receiver) {
  const std::uint64_t all = Receiver(receiver).app.Record().Counters().messagesReceived;
  return static_cast<std::size_t>(all - countsBefore.at(receiver));
}

std::vector<harness::Recorded> InputWay::Sent() {
  const auto stamps = scenario.Control().InputStamps(scenario.KeyboardInput());
  if (stamps.size() != messages.size()) {
    throw std::runtime_error("the desk's keyboard played " + std::to_string(stamps.size()) +
                             " of " + std::to_string(messages.size()) + " messages");
  }
  std::vector<harness::Recorded> sent;
  for (std::size_t i = 0; i < messages.size(); ++i) sent.push_back({stamps[i], messages[i]});
  return sent;
}

std::vector<harness::Recorded> InputWay::Received(std::size_t receiver) {
  std::vector<harness::Recorded> received;
  for (const auto& message : Receiver(receiver).app.Record().MessagesTo("/midi")) {
    auto midi = device::AsMidi(message.message);
    // What is not the keyboard's MIDI counts as a message that differs from every one sent.
    const bool own = midi && midi->name == Scenario::kKeyboard && midi->id == scenario.KeyboardId();
    received.push_back({message.arrival, own ? std::move(midi->data) : harness::Bytes()});
  }
  return received;
}

}  // namespace corvalint::demo
