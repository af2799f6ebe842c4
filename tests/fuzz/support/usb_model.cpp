#include "fuzz/support/usb_model.h"

#include <algorithm>
#include <cstdio>

#include "fuzz/support/osc_build.h"
#include "fuzz/support/wire.h"

namespace corvalint::fuzz {

namespace {

constexpr std::uint32_t kRecovery = 0xE8000028;
constexpr std::uint32_t kUsableAnyway = 0xE8000065;

constexpr std::string_view kDisconnect = "UsbClientThread::PerformDisconnect()\n";

std::string Hex(std::uint32_t number, const char* format) {
  char text[12];
  std::snprintf(text, sizeof text, format, number);
  return text;
}

const char* IdentifierOf(std::size_t device) {
  const char* const identifier = TheDeviceCable().devices[device].identifier;
  return identifier == nullptr ? "" : identifier;
}

std::string Word(std::uint64_t value) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift);
  return bytes;
}

}  // namespace

std::string_view BytesOf(Arrival arrival) {
  using namespace std::string_view_literals;
  switch (arrival) {
    case Arrival::badLength:
      return "\x7F\0\0\0"sv;
    case Arrival::otherKind:
      return "\0\0\0\4\0\0\0\1\0\0\0\2abcd"sv;
    case Arrival::end:
      break;
  }
  return {};
}

void UsbModel::Arrive(std::size_t device, bool threadsRefused) {
  console += "notification(1)\nDevice connected: ";
  console += IdentifierOf(device);
  console += "\nDevice created\n";
  away[kManagerOf[device]] = false;
  listed.push_back(std::make_shared<ModelClient>(ModelClient{device, !threadsRefused}));
  if (!threadsRefused) waiting.push_back(listed.back());
}

// The oldest client of the device ends, and nobody else.
std::uint32_t UsbModel::Depart(std::size_t device) {
  console += "notification(2)\nDevice disconnected: ";
  console += IdentifierOf(device);
  console += "\n";
  const auto found = std::find_if(listed.begin(), listed.end(),
                                  [&](const auto& client) { return client->device == device; });
  if (found == listed.end()) return 0;
  const std::shared_ptr<ModelClient> client = *found;
  listed.erase(found);
  away[kManagerOf[device]] = true;
  client->running = false;
  console += kDisconnect;
  const std::uint32_t slept = client->open ? 1000 : 0;
  client->open = false;
  if (!client->hasThread) Finish(*client);
  return slept;
}

void UsbModel::OtherNotification(std::uint32_t kind, bool isDevice) {
  console += "notification(" + std::to_string(kind) + ")\n";
  if (!isDevice) console += "invalid product id\n";
}

void UsbModel::Begin(ModelClient& client) { GoOn(client); }

void UsbModel::WakeUp(ModelClient& client) {
  if (client.inRecovery) {
    client.inRecovery = false;
    return Sleep(client, 5000);
  }
  GoOn(client);
}

// A client whose stream was closed by its departure hears of it as a failure.
void UsbModel::Receive(ModelClient& client, Arrival arrival) {
  if (!client.open) {
    console += "Server disconnected: -1\n";
    console += kDisconnect;
    return GoOn(client);
  }
  if (arrival == Arrival::otherKind) return GoOn(client);
  console +=
      arrival == Arrival::end ? "Server disconnected: 0\n" : "Invalid packet length 2130706432\n";
  console += kDisconnect;
  client.open = false;
  Sleep(client, 1000);
}

void UsbModel::MidiToAll(std::string_view name, std::int32_t id, std::int64_t time,
                         std::string_view bytes) {
  const std::string packet =
      OscBuilder("/midi").Text(name).Int32(id).Int64(time).Blob(bytes).Packet();
  for (const auto& client : listed) {
    if (client->open) Send(*client, packet);
  }
}

void UsbModel::GoOn(ModelClient& client) {
  if (!client.running) {
    console += "Finished\n";
    return Finish(client);
  }
  if (!client.open) {
    if (client.connectionId == 0) ObtainConnectionId(client);
    if (client.inRecovery) return Sleep(client, 5000);
    if (client.connectionId != 0) Connect(client);
    if (!client.open) return Sleep(client, 5000);
  }
  client.at = ModelClient::At::waiting;
}

void UsbModel::ObtainConnectionId(ModelClient& client) {
  const DeviceCable::Device& device = TheDeviceCable().devices[client.device];
  const std::uint32_t answer = device.connectAnswer;
  Call("connect", client.device);
  console += "Connecting to device...\nAMDeviceConnect() = 0x" + Hex(answer, "%x") + "\n";
  if (answer == 0 || answer == kRecovery || answer == kUsableAnyway) Call("id", client.device);
  const std::string shownId = Hex(device.connectionId, "%X") + "\n";
  if (answer == kRecovery) {
    console += "found iDevice in Recovery Mode - muxConnTmp = " + shownId;
    client.inRecovery = true;
  } else if (answer == kUsableAnyway) {
    console += "muxConnTmp = " + shownId;
    client.connectionId = device.connectionId;
  } else if (answer == 0) {
    client.connectionId = device.connectionId;
  } else {
    console += "AMDeviceConnect = " + std::to_string(static_cast<std::int32_t>(answer)) + "\n";
  }
}

void UsbModel::Connect(ModelClient& client) {
  Call("port", client.connectionId);
  if (TheDeviceCable().portAnswer != PortAnswer::stream) return;
  sent.emplace_back();
  if (TheWire().staysBlocking) return;
  client.stream = sent.size() - 1;
  client.open = true;
  Announce(client);
}

// The desktop's keyboard, and what the managers of the other devices have published.
void UsbModel::Announce(ModelClient& client) {
  Send(client, OscBuilder("/add_remote_source").Text("Keys").Int32(7).Packet());
  for (const auto& other : listed) {
    if (other.get() == &client) continue;
    if (kManagerOf[other->device] == 0) {
      Send(client, OscBuilder("/add_remote_source").Text("Pad").Int32(1).Packet());
    } else if (kManagerOf[other->device] == 1) {
      Send(client, OscBuilder("/add_remote_destination").Text("Phone").Int32(2).Packet());
    }
  }
}

void UsbModel::Finish(ModelClient& client) {
  console += kDisconnect;
  Call("disconnect", client.device);
  Call("disconnect", client.device);
  client.at = ModelClient::At::ended;
}

void UsbModel::Sleep(ModelClient& client, std::uint32_t milliseconds) {
  client.at = ModelClient::At::sleeping;
  client.sleep = milliseconds;
}

void UsbModel::Call(const char* what, std::size_t number) {
  calls.push_back(std::string(what) + " " + std::to_string(number));
}

void UsbModel::Send(const ModelClient& client, std::string_view packet) {
  sent[client.stream] += Word(packet.size()) + Word(2) + Word(2) + std::string(packet);
}

}  // namespace corvalint::fuzz
