#include "protocol/base_client_thread.h"

namespace corvalint {

// The messages with which a device drives its loopback OSC ports. True when the address was one of
// theirs; one that only begins like them is not. Arguments are read to the last before anything is
// done.
bool BaseClientThread::OscPortMessage(const osc::ReceivedMessage& message,
                                      OscArguments& arguments) {
  if (localPorts == nullptr) return false;
  if (AddressIs(message, "/osc/create_port")) {
    CreateOscPort(arguments);
  } else if (AddressIs(message, "/osc/remove_port")) {
    RemoveOscPort(arguments);
  } else if (AddressIs(message, "/osc/port_creation_report")) {
    NoteOscPortReport(arguments);
  } else if (AddressIs(message, "/osc")) {
    SendThroughOscPort(arguments);
  } else {
    return false;
  }
  return true;
}

void BaseClientThread::CreateOscPort(OscArguments& arguments) {
  const std::int32_t destinationPort = arguments.Int32();
  const std::int32_t bindPort = arguments.Int32();
  localPorts->CreatePort(destinationPort, bindPort, arguments.String());
}

void BaseClientThread::RemoveOscPort(OscArguments& arguments) {
  const std::int32_t destinationPort = arguments.Int32();
  arguments.Int32();  // the bind port, which does not matter
  localPorts->RemovePort(OscPortKey(arguments.String(), destinationPort));
}

// The device's own word on a port. Nothing here depends on it.
void BaseClientThread::NoteOscPortReport(OscArguments& arguments) {
  const char* const destinationKey = arguments.String();
  const std::int32_t status = arguments.Int32();
  if (const auto port = localPorts->Find(destinationKey)) {
    port->reportedStatus = static_cast<std::uint32_t>(status);
  }
}

void BaseClientThread::SendThroughOscPort(OscArguments& arguments) {
  const char* const destinationKey = arguments.String();
  const OscBlob data = arguments.Blob();
  if (const auto port = localPorts->Find(destinationKey)) {
    port->SendToDestination(data.data, data.size);
  }
}

}  // namespace corvalint
