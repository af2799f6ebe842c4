#pragma once

#include <memory>
#include <string>
#include <vector>

#include "fuzz/support/device_model.h"
#include "fuzz/support/port_driver.h"
#include "ports/external_midi_manager.h"
#include "ports/local_osc_port_table.h"

namespace corvalint::fuzz {

// Compare what the library made of the steps so far with the model; a difference ends the program
// with its name.

// What one device was sent since the last comparison.
void ComparePackets(const std::vector<std::string>& found,
                    const std::vector<std::string>& expected);
// One device's table of loopback ports.
void CompareOscPorts(LocalOSCPortTable& table,
                     const std::vector<std::shared_ptr<ModelOscPort>>& expected);
// One device's published endpoints, the newest first.
void ComparePublished(ExternalMidiManager& manager, const ModelManager& expected);
// The ports that are open at the driver, and what was sent into them.
void ComparePorts(const PortDriver& driver, const DeviceModel& model);

}  // namespace corvalint::fuzz
