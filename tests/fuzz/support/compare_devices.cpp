#include "fuzz/support/compare_devices.h"

#include <algorithm>
#include <cstddef>

#include "fuzz/support/check.h"

namespace corvalint::fuzz {

void ComparePackets(const std::vector<std::string>& found,
                    const std::vector<std::string>& expected) {
  for (std::size_t i = 0; i < std::min(found.size(), expected.size()); ++i) {
    CheckSame(found[i], expected[i], "packet for a device");
  }
  Check(found.size() >= expected.size(), "a packet that a device did not get");
  Check(found.size() <= expected.size(), "a packet that a device should not get");
}

void CompareOscPorts(LocalOSCPortTable& table,
                     const std::vector<std::shared_ptr<ModelOscPort>>& expected) {
  Check(table.Count() == expected.size(), "number of loopback ports");
  for (const auto& port : expected) {
    const auto found = table.Find(port->destinationKey);
    Check(found != nullptr, "a loopback port that is not there");
    CheckSame(found->BindKey(), port->bindKey, "bind key");
    Check(found->fresh == port->fresh, "fresh flag");
    Check(found->reportedStatus == static_cast<std::uint32_t>(port->reported), "reported status");
  }
}

void ComparePublished(ExternalMidiManager& manager, const ModelManager& expected) {
  const std::vector<PublishedEndpoint> found = manager.PublishedEndpoints();
  std::size_t next = 0;
  for (auto port = expected.ports.rbegin(); port != expected.ports.rend(); ++port) {
    for (const bool isSource : {false, true}) {
      const auto& record = isSource ? port->source : port->destination;
      if (!record) continue;
      Check(next < found.size(), "an endpoint that is not published");
      const PublishedEndpoint& endpoint = found[next++];
      Check((endpoint.kind == EndpointKind::source) == isSource, "kind of an endpoint");
      CheckSame(endpoint.name, record->name, "name of an endpoint");
      Check(endpoint.id == static_cast<std::uint32_t>(record->id), "id of an endpoint");
    }
  }
  Check(next == found.size(), "an endpoint that should not be published");
}

void ComparePorts(const PortDriver& driver, const DeviceModel& model) {
  const auto& expected = model.effects.toPorts;
  Check(driver.OpenNames() == model.OpenPortNames(), "ports at the driver");
  Check(driver.sent.size() == expected.size(), "blocks for published ports");
  for (std::size_t i = 0; i < driver.sent.size(); ++i) {
    Check(driver.sent[i].port == expected[i].port, "published port of a block");
    CheckSame(driver.sent[i].bytes, expected[i].bytes, "bytes for a published port");
  }
}

}  // namespace corvalint::fuzz
