// Input: calls of a host with arguments of all kinds, one after the other, with devices that work
// or fail; or, from the console host, command lines. Results are compared with a list of endpoints
// that knows nothing but names, ids and what was switched.

#include <array>
#include <deque>
#include <memory>
#include <stdexcept>
#include <string>

#include "fuzz/support/check.h"
#include "fuzz/support/desk_midi.h"
#include "fuzz/support/host_text.h"
#include "fuzz/support/input.h"
#include "fuzz/support/quiet.h"
#include "unit/support/paired_exports.h"
#include "winmidi/midi_destination.h"
#include "winmidi/midi_endpoint_registry.h"

namespace corvalint::fuzz {

namespace {

using Side = test::Exports;

constexpr Side kSides[2] = {test::kSources, test::kDestinations};

// What the model knows of an endpoint, and the record that it stands for.
struct Endpoint {
  std::string name;
  int id;
  bool on = false;
  bool available = true;
  MidiEndpoint* record = nullptr;
};

const std::array<std::vector<Endpoint>, 2> kAtTheBeginning = {{
    {{"Keyboard", 7}, {"", -1}, {std::string(32, 'x'), 0}, {"\xC4\xD6 twin", 7}},
    {{"Synth", 7}, {"Keyboard", 2147483647}, {std::string(32, '\xFF'), -2147483647 - 1}},
}};

class Recorder final : public MidiDelegate {
 public:
  void MidiReceived(const std::uint8_t* data, std::int32_t length, const std::string& name,
                    std::int32_t uniqueId, std::uint64_t) override {
    received = std::string(reinterpret_cast<const char*>(data), static_cast<std::size_t>(length));
    receivedFrom = name + std::to_string(uniqueId);
    ++receptions;
  }
  void SourceAdded(const MidiEndpoint&) override { ++added; }
  void SourceRemoved(const MidiEndpoint&) override { ++removed; }
  void DestinationAdded(const MidiEndpoint&) override { ++added; }
  void DestinationRemoved(const MidiEndpoint&) override { ++removed; }

  std::string received, receivedFrom;
  int receptions = 0, added = 0, removed = 0;
};

class Host {
 public:
  Host() : console(Quieten()), desk(TheDeskMidi()), registry(GetMidiEndpointRegistry()) {
    CriticalSectionScope hold(registry.listLock);
    for (const Endpoint& endpoint : kAtTheBeginning[0]) {
      registry.sources.push_back(std::make_shared<MidiSourceEndpoint>(registry));
      registry.sources.back()->name = endpoint.name;
      registry.sources.back()->uniqueId = endpoint.id;
    }
    for (const Endpoint& endpoint : kAtTheBeginning[1]) {
      registry.destinations.push_back(std::make_shared<MidiDestinationEndpoint>());
      registry.destinations.back()->name = endpoint.name;
      registry.destinations.back()->uniqueId = endpoint.id;
    }
  }

  void Run(Input input) {
    Begin();
    for (int calls = 0; calls < 200 && !input.Done(); ++calls) Call(input);
    Check(desk.OpenHandles() == CountOn(), "devices that are open");
  }

 private:
  void Begin() {
    console.out.clear();
    desk.Reset(static_cast<std::uint32_t>(kAtTheBeginning[0].size()),
               static_cast<std::uint32_t>(kAtTheBeginning[1].size()));
    recorder = {};
    registry.delegate = &recorder;
    CriticalSectionScope devices(registry.deviceLock);
    registry.inputsAtScan = desk.inputs;
    registry.outputsAtScan = desk.outputs;
    CriticalSectionScope hold(registry.listLock);
    for (std::size_t i = 0; i < sides[0].size(); ++i) {
      Restore(sides[0][i], *registry.sources[i], i);
    }
    for (std::size_t i = 0; i < sides[1].size(); ++i) {
      Restore(sides[1][i], *registry.destinations[i], i);
    }
  }
  static void Restore(Endpoint& endpoint, MidiEndpoint& record, std::size_t place) {
    endpoint.on = false;
    endpoint.available = true;
    endpoint.record = &record;
    record.off = true;
    record.available = true;
    record.handle = nullptr;
    record.deviceIndex = static_cast<std::uint32_t>(place);
  }

  int CountOn() const {
    int on = 0;
    for (const auto& side : sides) {
      for (const Endpoint& endpoint : side) on += endpoint.on ? 1 : 0;
    }
    return on;
  }

  // Ids that exist come up often.
  int TakeId(Input& input, const std::vector<Endpoint>& endpoints) {
    const std::uint8_t choice = input.Byte();
    return choice < 8 ? endpoints[choice % endpoints.size()].id : input.Int32();
  }

  static Endpoint* Find(std::vector<Endpoint>& endpoints, int id) {
    for (Endpoint& endpoint : endpoints) {
      if (endpoint.id == id) return &endpoint;
    }
    return nullptr;
  }

  void Call(Input& input) {
    const std::uint8_t choice = input.Byte();
    const std::size_t which = choice & 1;
    const Side& side = kSides[which];
    std::vector<Endpoint>& endpoints = sides[which];
    switch (choice >> 1 & 15) {
      case 0:
        return CheckConstants(input);
      case 1:
        return Check(side.count() == static_cast<int>(endpoints.size()), "count");
      case 2:
        return CheckPosition(side, endpoints, input.Int32());
      case 3:
        return CheckPosition(side, endpoints, static_cast<int>(input.Byte()) - 2);
      case 4:
      case 5: {
        const int id = TakeId(input, endpoints);
        const int position = choice & 64 ? input.Int32() : static_cast<int>(input.Byte()) - 1;
        return CheckName(side, Find(endpoints, id), id, position);
      }
      case 6: {
        const int id = TakeId(input, endpoints);
        return CheckStatus(side, Find(endpoints, id), id);
      }
      case 7:
        return Receive(input);
      case 8:
        return Send(input);
      default:
        return Toggle(side, which, TakeId(input, endpoints), input.Byte());
    }
  }

  static void CheckConstants(Input& input) {
    Check(corvalintServerWiFiClients() == 14, "WiFi clients");
    Check(corvalintServerUSBClients() == 0, "USB clients");
    Check(corvalintServerScriptActive() == 1, "script active");
    Check(corvalintServerActiveConnections() == 1337, "active connections");
    const std::int64_t first = input.Int64();
    initliaze_port_control(first, input.Int64());
  }

  static void CheckPosition(const Side& side, const std::vector<Endpoint>& endpoints,
                            int position) {
    const bool valid = position >= 0 && position < static_cast<int>(endpoints.size());
    try {
      const int id = side.idAt(position);
      Check(valid && id == endpoints[static_cast<std::size_t>(position)].id, "id at a position");
    } catch (const std::out_of_range& failure) {
      Check(!valid, "a valid position was refused");
      CheckSame(failure.what(), "invalid vector<T> subscript", "text");
    }
  }

  static void CheckName(const Side& side, const Endpoint* endpoint, int id, int position) {
    const unsigned int length = side.nameLength(id);
    Check(length == (endpoint == nullptr ? 0 : endpoint->name.size()), "length of a name");
    const bool valid =
        endpoint == nullptr || (position >= 0 && position < static_cast<int>(length));
    try {
      const char byte = side.nameByte(id, position);
      Check(valid, "a byte beyond a name");
      const char expected =
          endpoint == nullptr ? '\0' : endpoint->name[static_cast<std::size_t>(position)];
      Check(byte == expected, "byte of a name");
    } catch (const std::out_of_range& failure) {
      Check(!valid, "a valid byte was refused");
      CheckSame(failure.what(), "invalid string position", "text");
    }
  }

  void CheckStatus(const Side& side, const Endpoint* endpoint, int id) {
    console.out.clear();
    Check(side.status(id) == (endpoint != nullptr && endpoint->on ? 1 : 0), "status");
    CheckSame(console.out, endpoint == nullptr ? "" : endpoint->on ? "true" : "false", "console");
    Check(side.available(id) == (endpoint != nullptr && endpoint->available ? 1 : 0), "available");
  }

  // Lets the desk fail as the plan says; true when a device can be opened all the same.
  bool Plan(std::uint8_t plan, std::size_t side, const Endpoint& endpoint) {
    const bool input = side == 0;
    desk.openFails = (plan & 7) == 1;
    desk.preparesLeft = (plan & 7) == 2 ? plan >> 6 : -1;
    desk.startFails = (plan & 7) == 3;
    const bool moved = (plan & 7) == 4;
    desk.capsFail = (plan & 8) != 0;
    desk.nameInCaps = (plan & 16) != 0 ? "Someone else" : endpoint.name;
    const std::uint32_t usual = static_cast<std::uint32_t>(sides[side].size());
    (input ? desk.inputs : desk.outputs) = moved ? usual + 1 : usual;
    if (moved && (desk.capsFail || desk.nameInCaps != endpoint.name)) return false;
    return !desk.openFails && !(input && (desk.startFails || desk.preparesLeft >= 0));
  }

  void Toggle(const Side& side, std::size_t which, int id, std::uint8_t plan) {
    Endpoint* const endpoint = Find(sides[which], id);
    const int added = recorder.added, removed = recorder.removed;
    const bool wasOn = endpoint != nullptr && endpoint->on;
    const bool opens = endpoint != nullptr && Plan(plan, which, *endpoint);
    side.toggle(static_cast<unsigned int>(id));
    desk.preparesLeft = -1;
    if (endpoint != nullptr && wasOn) {
      endpoint->on = false;
    } else if (endpoint != nullptr) {
      endpoint->on = endpoint->available = opens;
    }
    Check(recorder.added == added + (!wasOn && opens ? 1 : 0), "announcements of arrivals");
    Check(recorder.removed == removed + (wasOn ? 1 : 0), "announcements of departures");
    CheckStatus(side, endpoint, id);
    Check(desk.OpenHandles() == CountOn(), "devices that are open");
  }

  // Bytes that a message with that status byte has.
  static std::size_t LengthOf(std::uint32_t status) {
    if (status < 0x80) return 0;
    if (status >= 0xF0) return status == 0xF2 ? 3 : status == 0xF1 || status == 0xF3 ? 2 : 1;
    return status >> 4 == 0xC || status >> 4 == 0xD ? 2 : 3;
  }

  // MIDI comes in at one of the inputs, if it is on.
  void Receive(Input& input) {
    const Endpoint& source = sides[0][input.Byte() % sides[0].size()];
    const std::uint8_t length = input.Byte();
    if (!source.on) return;
    const int before = recorder.receptions;
    std::string expected;
    if (length >= 128) {
      const auto packed = static_cast<std::uint32_t>(input.Number(4));
      for (std::size_t i = 0; i < LengthOf(packed & 0xFF); ++i) {
        expected += static_cast<char>(packed >> 8 * i);
      }
      desk.Short(source.record->handle, packed);
      Check(recorder.receptions == before + (expected.empty() ? 0 : 1), "receptions");
      if (expected.empty()) return;
    } else {
      expected = input.Bytes(length);
      if (!desk.Long(source.record->handle, expected)) return;
      Check(recorder.receptions == before + 1, "receptions");
    }
    CheckSame(recorder.received, expected, "bytes received");
    CheckSame(recorder.receivedFrom, source.name + std::to_string(source.id), "their source");
  }

  // MIDI goes out to the outputs of an id.
  void Send(Input& input) {
    const int id = TakeId(input, sides[1]);
    const std::string bytes(input.Bytes(input.Byte()));
    desk.sent.clear();
    const bool found = SendToMidiDestinations(registry.DestinationsWithId(id),
                                              reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                              static_cast<std::uint32_t>(bytes.size()));
    Check(found == (Find(sides[1], id) != nullptr), "an output with that id");
    std::size_t sent = 0;
    for (const Endpoint& endpoint : sides[1]) sent += endpoint.id == id && endpoint.on ? 1 : 0;
    Check(desk.sent.size() == sent, "blocks sent");
    for (const std::string& block : desk.sent) CheckSame(block, bytes, "bytes sent");
  }

  Console& console;
  DeskMidi& desk;
  MidiEndpointRegistry& registry;
  Recorder recorder;
  std::array<std::vector<Endpoint>, 2> sides = kAtTheBeginning;
};

}  // namespace

}  // namespace corvalint::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvalint::fuzz;
  static auto* const host = new Host;
  Input input(data, size);
  const std::uint8_t kind = input.Byte();
  if (kind % 4 != 0) {
    CheckHostText(kind, input.Rest());
  } else {
    host->Run(input);
  }
  return 0;
}
