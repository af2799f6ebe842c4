#include "virtual_port.h"

#include <stdexcept>
#include <utility>

#include "outbox.h"
#include "pace.h"
#include "wide_text.h"

namespace corvalint::desk {

VirtualPort::VirtualPort(int portId, std::wstring portName, Callback function,
                         DWORD_PTR instanceValue)
    : id(portId), name(std::move(portName)), callback(function), instance(instanceValue) {}

void VirtualPort::Write(Bytes message) {
  driver.Post([this, message = std::move(message)]() mutable { CallBack(message); });
}

void VirtualPort::Play(std::int64_t job, std::vector<Bytes> list, std::int64_t paceUs,
                       std::uint64_t repeat, bool stamps) {
  const bool posted = driver.Post([=, this, list = std::move(list)]() mutable {
    Pace pace(paceUs);
    std::uint64_t delivered = 0;
    for (std::uint64_t round = 0; round < repeat && !driver.Stopping(); ++round) {
      for (Bytes& message : list) {
        if (!pace.Next(driver)) break;
        if (stamps) Outbox::Get().Recorded('p', id, NowNs(), nullptr, 0);
        CallBack(message);
        ++delivered;
      }
    }
    Outbox::Get().Event("played " + std::to_string(job) + " " + std::to_string(delivered));
  });
  if (!posted) Outbox::Get().Event("played " + std::to_string(job) + " 0");
}

void VirtualPort::CallBack(Bytes& message) {
  if (callback == nullptr) return;
  callback(this, message.data(), static_cast<DWORD>(message.size()), instance);
}

void VirtualPort::Close() {
  if (driver.IsCurrentThread()) {
    // The real driver never comes back from this.
    Outbox::Get().Violation("virtualMIDIClosePort inside the callback of its own port");
  }
  driver.Stop();
}

PortTable& PortTable::Get() {
  static PortTable* table = new PortTable;
  return *table;
}

VirtualPort* PortTable::Create(const std::wstring& name, VirtualPort::Callback callback,
                               DWORD_PTR instance) {
  VirtualPort* port = nullptr;
  {
    const std::lock_guard hold(lock);
    if (!taken.insert(name).second) return nullptr;
    auto made = std::make_unique<VirtualPort>(++lastId, name, callback, instance);
    port = made.get();
    ports[port] = std::move(made);
  }
  MidiTable& table = MidiTable::Get();
  port->input = table.AddInput(AnsiOf(name), name, -1);
  port->output = table.AddOutput(AnsiOf(name), name, -1,
                                 [port](Bytes message) { port->Write(std::move(message)); });
  Outbox::Get().Event("port " + std::to_string(port->id) + " open " + HexOfWide(name) + " " +
                      std::to_string(port->input->id) + " " + std::to_string(port->output->id));
  const std::lock_guard hold(lock);
  open.insert(port);
  return port;
}

bool PortTable::Remove(const VirtualPort* port) {
  {
    const std::lock_guard hold(lock);
    if (open.erase(port) == 0) return false;
  }
  MidiTable::Get().RemoveInput(port->input->id, MMSYSERR_NODRIVER);
  MidiTable::Get().RemoveOutput(port->output->id, MMSYSERR_NODRIVER);
  return true;
}

bool PortTable::IsOpen(const VirtualPort* port) {
  const std::lock_guard hold(lock);
  return open.contains(port);
}

bool PortTable::Existed(const VirtualPort* port) {
  const std::lock_guard hold(lock);
  return ports.contains(port);
}

std::vector<VirtualPort*> PortTable::Open() {
  const std::lock_guard hold(lock);
  std::vector<VirtualPort*> list;
  for (const auto& [key, port] : ports) {
    if (open.contains(key)) list.push_back(port.get());
  }
  return list;
}

VirtualPort& PortTable::ById(int id) {
  const std::lock_guard hold(lock);
  for (const auto& [key, port] : ports) {
    if (port->id == id && open.contains(key)) return *port;
  }
  throw std::runtime_error("no such open port: " + std::to_string(id));
}

void PortTable::Occupy(const std::wstring& name, bool occupied) {
  const std::lock_guard hold(lock);
  if (occupied) {
    taken.insert(name);
  } else {
    taken.erase(name);
  }
}

}  // namespace corvalint::desk
