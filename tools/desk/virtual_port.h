#pragma once

#include <windows.h>

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "midi_table.h"
#include "text.h"
#include "worker.h"

namespace corvalint::desk {

// One virtual MIDI port. Its driver thread calls the owner back with what applications write into
// it. Never destroyed; closing ends its life for callers.
class VirtualPort {
 public:
  using Callback = void(CALLBACK*)(void* port, BYTE* data, DWORD length, DWORD_PTR instance);

  VirtualPort(int portId, std::wstring portName, Callback function, DWORD_PTR instanceValue);

  // Calls the owner back on the driver thread with one message.
  void Write(Bytes message);

  // Calls the owner back with a list of messages, `paceUs` apart (0: as fast as it goes), and tells
  // "played JOB DELIVERED" at the end, which closing the port brings forward.
  void Play(std::int64_t job, std::vector<Bytes> messages, std::int64_t paceUs,
            std::uint64_t repeat, bool stamps);

  // Waits for a callback in progress; none comes after it.
  void Close();

  const int id;
  const std::wstring name;
  std::shared_ptr<InputDevice> input;    // what applications read
  std::shared_ptr<OutputDevice> output;  // what applications write to
  std::atomic<std::uint64_t> messages = 0;
  std::atomic<std::uint64_t> bytes = 0;

 private:
  void CallBack(Bytes& message);

  const Callback callback;
  const DWORD_PTR instance;
  Worker driver;
};

// The ports of the desk. All operations may be called from any thread.
class PortTable {
 public:
  static PortTable& Get();

  // Null if the name is taken.
  VirtualPort* Create(const std::wstring& name, VirtualPort::Callback callback, DWORD_PTR instance);

  // Takes the port out of the list; false if it is not open (then nothing may touch it).
  bool Remove(const VirtualPort* port);

  bool IsOpen(const VirtualPort* port);
  bool Existed(const VirtualPort* port);
  std::vector<VirtualPort*> Open();

  // An open port; throws std::runtime_error for another id.
  VirtualPort& ById(int id);

  // A name that some other program's port bears.
  void Occupy(const std::wstring& name, bool taken);

 private:
  std::mutex lock;
  std::map<const VirtualPort*, std::unique_ptr<VirtualPort>> ports;
  std::set<const VirtualPort*> open;
  std::set<std::wstring> taken;
  int lastId = 0;
};

}  // namespace corvalint::desk
