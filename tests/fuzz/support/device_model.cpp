#include "fuzz/support/device_model.h"

#include <algorithm>
#include <limits>

#include "fuzz/support/osc_build.h"

namespace corvalint::fuzz {

namespace {

constexpr std::size_t kLongestAnnouncement = 4096;

std::string NameOnDesktop(const std::string& name) {
  return name.size() > 31 ? name.substr(0, 29) + ".." : name;
}

std::int64_t Difference(std::int64_t a, std::int64_t b) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}
std::int64_t Sum(std::int64_t a, std::int64_t b) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}

// Seven tenths of the new value and the rest of the old one, cut toward zero; what 64 bits cannot
// hold becomes the smallest number.
std::int64_t Mix(std::int64_t newer, std::int64_t older) {
  const double a = static_cast<double>(newer) * 0.7;
  const double b = static_cast<double>(older) * (1 - 0.7);
  const double mixed = a + b;
  if (mixed >= 0x1p63 || mixed < -0x1p63) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(mixed);
}

}  // namespace

std::int64_t HostTime(std::int64_t ticks) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(ticks) * 1000000000u) / 10000000;
}

bool ModelManager::HasName(const std::string& name) const {
  return std::any_of(ports.begin(), ports.end(), [&](const ModelPort& port) {
    return (port.source && port.source->name == name) ||
           (port.destination && port.destination->name == name);
  });
}

ModelPort* ModelManager::WithId(bool isSource, std::int32_t id) {
  for (std::size_t i = ports.size(); i-- > 0;) {
    const auto& record = ports[i].Record(isSource);
    if (record && record->id == id) return &ports[i];
  }
  return nullptr;
}

DeviceModel::DeviceModel() {
  managers[0].key = "pad";
  managers[1].key = "phone";
  managers[2].key = "";  // a device that does not say who it is
  // The last device is the first one on a second way.
  const std::size_t managerOf[kDevices] = {0, 1, 2, 0};
  for (std::size_t i = 0; i < kDevices; ++i) {
    devices[i].manager = managerOf[i];
    order[i] = i;
  }
  listedCount = kDevices;
  outputs = {{"Synth", 7}, {"Piano", 1}, {"Organ", 7}};
}

bool DeviceModel::Owns(const ModelDevice& device, const std::string& key,
                       const std::string& name) const {
  const ModelManager& manager = managers[device.manager];
  return key.empty() ? manager.HasName(name) : manager.key == key && !manager.ports.empty();
}

bool DeviceModel::Announce(const char* what, const std::string& name, std::int32_t id,
                           const std::string& key) {
  const std::string packet = OscBuilder(what).Text(name).Int32(id).Packet();
  if (packet.size() > kLongestAnnouncement) return false;
  for (std::size_t i = 0; i < listedCount; ++i) {
    if (!Owns(devices[order[i]], key, name)) effects.packets[order[i]].push_back(packet);
  }
  effects.console +=
      std::string("sending ") + what + ": " + name + " || " + std::to_string(id) + " \n";
  return true;
}

std::uintptr_t DeviceModel::MakePort(const std::string& name) {
  const std::string shown = NameOnDesktop(name);
  if (driverRefuses) return 0;
  for (std::size_t i = 0; i < driverPorts.size(); ++i) {
    if (driverOpen[i] && driverPorts[i] == shown) return 0;
  }
  driverPorts.push_back(shown);
  driverOpen.push_back(true);
  return driverPorts.size();
}

bool DeviceModel::Add(std::size_t device, bool isSource, const std::string& name, std::int32_t id) {
  const char* const kind = isSource ? "source" : "destination";
  effects.console += std::string("receiving add_remote_") + kind + ": " + name + " || " +
                     std::to_string(id) + "\n";
  ModelManager& manager = managers[devices[device].manager];
  if (manager.WithId(isSource, id) != nullptr) return true;
  ModelPort* port = nullptr;
  for (ModelPort& candidate : manager.ports) {
    if (candidate.name == name && !candidate.Record(isSource)) port = &candidate;
  }
  if (port == nullptr) {
    manager.ports.push_back({name, MakePort(name), {}, {}});
    port = &manager.ports.back();
  }
  port->Record(isSource) = ModelRecord{name, id};
  return Announce(isSource ? "/add_remote_source" : "/add_remote_destination", name, id,
                  manager.key);
}

bool DeviceModel::Remove(std::size_t device, bool isSource, const std::string& name,
                         std::int32_t id) {
  const char* const kind = isSource ? "source" : "destination";
  effects.console += std::string("receiving remove_remote_") + kind + ": " + name + " || " +
                     std::to_string(id) + "\n";
  ModelManager& manager = managers[devices[device].manager];
  ModelPort* const port = manager.WithId(isSource, id);
  if (port == nullptr) return true;
  const bool fits = Announce(isSource ? "/remove_remote_source" : "/remove_remote_destination",
                             name, id, manager.key);
  port->Record(isSource).reset();
  if (!port->source && !port->destination) {
    if (port->handle != 0) driverOpen[port->handle - 1] = false;
    manager.ports.erase(manager.ports.begin() + (port - manager.ports.data()));
  }
  return fits;
}

void DeviceModel::Midi(std::size_t device, const std::string& name, std::int32_t id,
                       std::int64_t time, const std::string& bytes) {
  const ModelPort* const port = managers[devices[device].manager].WithId(true, id);
  if (port != nullptr) effects.toPorts.push_back({port->handle, bytes});
  bool known = false;
  for (const ModelOutput& output : outputs) {
    if (output.id != id) continue;
    known = true;
    if (output.on) {
      effects.toOutputs.push_back(bytes);
    } else {
      effects.console += "MMSYSERR_INVALHANDLE\n";
    }
  }
  if (known) return;
  const std::string packet = OscBuilder("/midi")
                                 .Text(name)
                                 .Int32(id)
                                 .Int64(Sum(devices[device].clock.midiOffset, time))
                                 .Blob(bytes)
                                 .Packet();
  for (std::size_t i = 0; i < listedCount; ++i) {
    if (order[i] != device) effects.packets[order[i]].push_back(packet);
  }
}

void DeviceModel::InitTiming(std::size_t device, std::int64_t deviceTime, std::int64_t later) {
  const std::int64_t offset = Difference(later, deviceTime);
  devices[device].clock = {offset, offset, later, offset};
  effects.packets[device].push_back(OscBuilder("/init_timing").Int64(offset).Int32(210).Packet());
}

void DeviceModel::UpdateTiming(std::size_t device, std::int64_t deviceTime, std::int64_t now) {
  ModelClock& clock = devices[device].clock;
  const double drift = static_cast<double>(Difference(clock.initOffset, clock.offset)) /
                       static_cast<double>(Difference(now, clock.initTime));
  clock.offset = Mix(Difference(now, deviceTime), clock.offset);
  clock.midiOffset = Mix(clock.offset, clock.midiOffset);
  effects.packets[device].push_back(
      OscBuilder("/update_timing").Double(1.0 / (drift + 1.0) - 1.0).Int64(clock.offset).Packet());
}

void DeviceModel::ToggleListed(std::size_t device) {
  ModelDevice& changed = devices[device];
  changed.listed = !changed.listed;
  const auto end = order.begin() + static_cast<std::ptrdiff_t>(listedCount);
  if (changed.listed) {
    order[listedCount++] = device;
  } else {
    static_cast<void>(std::remove(order.begin(), end, device));
    --listedCount;
  }
}

void DeviceModel::DesktopWrites(std::uintptr_t handle, const std::string& bytes, std::int64_t now) {
  for (ModelManager& manager : managers) {
    for (const ModelPort& port : manager.ports) {
      if (port.handle != handle || !port.destination) continue;
      const std::string packet = OscBuilder("/midi")
                                     .Text(port.destination->name)
                                     .Int32(port.destination->id)
                                     .Int64(now)
                                     .Blob(bytes)
                                     .Packet();
      for (std::size_t i = 0; i < listedCount; ++i) {
        if (Owns(devices[order[i]], manager.key, port.destination->name)) {
          effects.packets[order[i]].push_back(packet);
        }
      }
    }
  }
}

void DeviceModel::ToggleOutput(std::size_t output) {
  ModelOutput& switched = outputs[output];
  // Two outputs can have one id; the host reaches the first.
  for (ModelOutput& other : outputs) {
    if (other.id != switched.id) continue;
    other.on = !other.on;
    Announce(other.on ? "/add_remote_destination" : "/remove_remote_destination", other.name,
             other.id, "");
    if (other.on) effects.console += "destination added " + other.name + "\n";
    return;
  }
}

std::vector<std::string> DeviceModel::OpenPortNames() const {
  std::vector<std::string> names;
  for (std::size_t i = 0; i < driverPorts.size(); ++i) {
    if (driverOpen[i]) names.push_back(driverPorts[i]);
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace corvalint::fuzz
