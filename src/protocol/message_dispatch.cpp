#include <osc/OscOutboundPacketStream.h>

#include "clients/packet_buffer.h"
#include "protocol/base_client_thread.h"
#include "service/console.h"
#include "service/host_time.h"
#include "winmidi/midi_destination.h"

namespace corvalint {

namespace {

// Part of every "/init_timing" reply, fixed on purpose.
constexpr osc::int32 kInitTimingConstant = 210;

// A small message that is built and sent on this client's own stream.
class Reply {
 public:
  explicit Reply(const char* address) : stream(buffer, sizeof buffer) {
    stream << osc::BeginMessage(address);
  }
  osc::OutboundPacketStream& Arguments() { return stream; }
  void SendTo(DeviceClient& client) {
    stream << osc::EndMessage;
    client.SendFramed(stream.Data(), static_cast<std::uint32_t>(stream.Size()));
  }

 private:
  char buffer[kSmallPacketBuffer];
  osc::OutboundPacketStream stream;
};

}  // namespace

void BaseClientThread::ProcessPacket(const char* data, std::size_t size,
                                     const RemoteEndpoint& endpoint) {
  DeviceMidi midi{};
  if (ReadDeviceMidi(data, size, midi)) return SendOn(midi);
  OscListener::ProcessPacket(data, size, endpoint);
}

// A missing or wrong argument costs one message: the rest of its bundle still runs. A malformed one
// ends its packet.
void BaseClientThread::ProcessMessage(const osc::ReceivedMessage& message,
                                      const RemoteEndpoint& /*endpoint*/) {
  const std::int64_t now = HostTimeNanoseconds();
  try {
    Dispatch(message, now);
  } catch (const osc::MissingArgumentException& failure) {
    PrintParsingError(failure);
  } catch (const osc::WrongArgumentTypeException& failure) {
    PrintParsingError(failure);
  }
}

void BaseClientThread::Dispatch(const osc::ReceivedMessage& message, std::int64_t now) {
  OscArguments arguments(message);
  if (OscPortMessage(message, arguments)) return;
  if (AddressIs(message, "/midi")) return MidiFromDevice(arguments);
  if (AddressIs(message, "/init_timing")) return InitTiming(arguments);
  if (AddressIs(message, "/update_timing")) return UpdateTiming(arguments, now);
  if (AddressIs(message, "/add_remote_source")) return AddRemoteSource(arguments);
  if (AddressIs(message, "/add_remote_destination")) return AddRemoteDestination(arguments);
  if (AddressIs(message, "/remove_remote_source")) return RemoveRemoteSource(arguments);
  if (AddressIs(message, "/remove_remote_destination")) return RemoveRemoteDestination(arguments);
  // Anything else is ignored without a line.
}

void BaseClientThread::MidiFromDevice(OscArguments& arguments) {
  DeviceMidi midi{};
  midi.name = arguments.String();
  midi.id = arguments.Int32();
  midi.deviceTime = arguments.Int64();
  const OscBlob blob = arguments.Blob();
  midi.data = blob.data;
  midi.size = blob.size;
  SendOn(midi);
}

// The bytes go to the device's own published port of that id and to every desktop destination of
// that id, both; whatever no destination took goes to the other devices as well.
void BaseClientThread::SendOn(const DeviceMidi& midi) {
  MidiRoute& route = routes.To(midi.id);
  if (route.source) route.source.Send(midi.data, midi.size);
  const bool taken = SendToMidiDestinations(route.destinations, midi.data, midi.size);
  if (!route.source && !route.othersNotified) {
    server.NotifyOtherManagers(midi.name, midi.id, *this);
    route.othersNotified = true;
  }
  if (!taken) {
    server.RelayMidiToOthers(midi.data, midi.size, midi.name, midi.id, *this,
                             WrappingAdd(clock.midiTimeOffset, midi.deviceTime));
  }
}

void BaseClientThread::InitTiming(OscArguments& arguments) {
  const std::int64_t deviceTime = arguments.Int64();
  clock.Initialise(deviceTime, HostTimeNanoseconds());
  Reply reply("/init_timing");
  reply.Arguments() << static_cast<osc::int64>(clock.clockOffset) << kInitTimingConstant;
  reply.SendTo(*this);
}

void BaseClientThread::UpdateTiming(OscArguments& arguments, std::int64_t now) {
  clock.Update(arguments.Int64(), now);
  Reply reply("/update_timing");
  reply.Arguments() << clock.Drift() << static_cast<osc::int64>(clock.clockOffset);
  reply.SendTo(*this);
}

void BaseClientThread::AddRemoteSource(OscArguments& arguments) {
  const char* const name = arguments.String();
  const std::int32_t id = arguments.Int32();
  ConsolePrint("receiving add_remote_source: %s || %d\n", name, id);
  midiManager.AddRemoteSource(name, static_cast<std::uint32_t>(id));
}

void BaseClientThread::AddRemoteDestination(OscArguments& arguments) {
  const char* const name = arguments.String();
  const std::int32_t id = arguments.Int32();
  ConsolePrint("receiving add_remote_destination: %s || %d\n", name, id);
  midiManager.AddRemoteDestination(name, static_cast<std::uint32_t>(id));
}

void BaseClientThread::RemoveRemoteSource(OscArguments& arguments) {
  const char* const name = arguments.String();
  const std::int32_t id = arguments.Int32();
  ConsolePrint("receiving remove_remote_source: %s || %d\n", name, id);
  midiManager.RemoveRemoteSource(name, static_cast<std::uint32_t>(id));
}

void BaseClientThread::RemoveRemoteDestination(OscArguments& arguments) {
  const char* const name = arguments.String();
  const std::int32_t id = arguments.Int32();
  ConsolePrint("receiving remove_remote_destination: %s || %d\n", name, id);
  midiManager.RemoveRemoteDestination(name, static_cast<std::uint32_t>(id));
}

}  // namespace corvalint
