#include "bridge.h"

#include <unistd.h>

#include "failing_tables.h"
#include "support/osc_bytes.h"

namespace corvalint::faults {

namespace {

using test::EndpointMessage;
using test::OscInt32;
using test::OscMessage;
using test::OscText;

constexpr std::uint16_t kOscPort = 9001;

const std::string kSupportKey = "SOFTWARE\\Apple Inc.\\Apple Application Support";
const std::string kDeviceKey = "SOFTWARE\\Apple Inc.\\Apple Mobile Device Support\\Shared";

}  // namespace

Bridge::Bridge(const Plan& newPlan)
    : plan(newPlan),
      pad(library.AddDevice("pad", kPadConnection), kPadConnection,
          {EndpointMessage("/add_remote_source", "Pad Out", 11),
           EndpointMessage("/add_remote_destination", "Pad In", 12),
           EndpointMessage("/add_remote_destination", "Pad Out", 13),
           PortMessage("/osc/create_port")}),
      phone(library.AddDevice("phone", kPhoneConnection), kPhoneConnection,
            {EndpointMessage("/add_remote_source", "Tune", 21),
             EndpointMessage("/add_remote_destination", "Tune", 22)}) {
  registry.SetValue(kSupportKey, "InstallDir", "C:\\Support");
  registry.SetValue(kDeviceKey, "iTunesMobileDeviceDLL", "C:\\Device\\device.dll");
  winmm.SetInputs({"Keys", "Pads"});
  winmm.SetOutputs({"Synth", "Drums"});
}

std::string Bridge::PortMessage(const std::string& address) const {
  return OscMessage(address, "iis",
                    OscInt32(std::int32_t{program.Port()}) + OscInt32(std::int32_t{kOscPort}) +
                        OscText("127.0.0.1"));
}

std::string Bridge::OscKey() const { return "127.0.0.1" + std::to_string(program.Port()); }

void Bridge::ProgramSends(const std::string& bytes) {
  const std::uint16_t port = PortOnThisMachine(kOscPort);
  if (port == 0) return;
  program.Send(port, bytes);
  usleep(1000);  // a datagram may take a moment where everything else is there at once
}

bool Bridge::ProgramHears(const std::string& bytes) {
  while (!program.Silent()) {
    if (program.Receive() == bytes) return true;
  }
  return false;
}

int Bridge::PortNamed(const std::u16string& name) {
  for (int number = PortsMade(); number > 0; --number) {
    if (ports.Created(number).name == name) return number;
  }
  return 0;
}

int Bridge::PortsMade() {
  for (const std::string& call : ports.TakeCalls()) {
    if (call.rfind("create(", 0) == 0) ++made;
    portCalls.push_back(call);
  }
  return made;
}

bool Bridge::PortWasSent(const std::string& hex) {
  PortsMade();
  for (const std::string& call : portCalls) {
    if (call.rfind("send(", 0) == 0 && call.find(hex) != std::string::npos) return true;
  }
  return false;
}

bool Bridge::OutputWasSent(const std::string& output, const std::string& bytes) const {
  const auto sent = winmm.Sent(output);
  return std::find(sent.begin(), sent.end(), BytesOf(bytes)) != sent.end();
}

}  // namespace corvalint::faults
