#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "midi_input.h"
#include "midi_output.h"

namespace corvalint::desk {

// All MIDI devices of the desk and the handles that are open. All operations may be called from any
// thread; the lock is never held during a call into a device.
class MidiTable {
 public:
  static MidiTable& Get();

  // Devices appear at the end of the list, or at `position` if that is within it.
  std::shared_ptr<InputDevice> AddInput(std::string name, std::wstring wide, std::int64_t position);
  std::shared_ptr<OutputDevice> AddOutput(std::string name, std::wstring wide,
                                          std::int64_t position, std::function<void(Bytes)> sink);

  // Unplugs. Open handles stay valid; their calls answer `result` from now on, or work if it is 0.
  void RemoveInput(int id, MMRESULT result);
  void RemoveOutput(int id, MMRESULT result);

  // Devices by their place in the list; null if there is none.
  std::size_t InputCount();
  std::size_t OutputCount();
  std::shared_ptr<InputDevice> InputAt(std::size_t index);
  std::shared_ptr<OutputDevice> OutputAt(std::size_t index);

  // Any device that ever existed; throws std::runtime_error for an unknown id.
  std::shared_ptr<InputDevice> InputById(int id);
  std::shared_ptr<OutputDevice> OutputById(int id);

  // Handles. Find answers null for a handle that is not open.
  std::shared_ptr<OpenInput> OpenInputHandle(std::shared_ptr<InputDevice> device,
                                             DWORD_PTR callback, DWORD_PTR instance);
  std::shared_ptr<OpenOutput> OpenOutputHandle(std::shared_ptr<OutputDevice> device);
  std::shared_ptr<OpenInput> Find(HMIDIIN handle);
  std::shared_ptr<OpenOutput> Find(HMIDIOUT handle);
  bool Forget(HMIDIIN handle);
  bool Forget(HMIDIOUT handle);
  bool EverOpened(std::uintptr_t handle);

  std::vector<std::shared_ptr<OpenInput>> HandlesOf(const InputDevice& device);
  std::size_t OpenInputs();
  std::size_t OpenOutputs();

  // Lets the driver of an input deliver items to every open handle, `paceUs` apart (0: as fast as
  // it goes), and tells "injected JOB DELIVERED DROPPED" at the end.
  void Inject(int id, std::int64_t job, std::vector<InputItem> items, std::int64_t paceUs,
              std::uint64_t repeat, std::size_t piece, bool stamps);

  // Lets the driver of an input deliver MIDI to every handle that is open when its turn comes. What
  // nobody has opened costs next to nothing.
  void Feed(const std::shared_ptr<InputDevice>& device, const std::uint8_t* midi, std::size_t size);

 private:
  std::uintptr_t NextHandle();

  std::mutex lock;
  std::vector<std::shared_ptr<InputDevice>> inputs;
  std::vector<std::shared_ptr<OutputDevice>> outputs;
  std::map<int, std::shared_ptr<InputDevice>> allInputs;
  std::map<int, std::shared_ptr<OutputDevice>> allOutputs;
  std::map<HMIDIIN, std::shared_ptr<OpenInput>> inputHandles;
  std::map<HMIDIOUT, std::shared_ptr<OpenOutput>> outputHandles;
  std::uintptr_t lastHandle = 0x10000;
  int lastId = 0;
};

}  // namespace corvalint::desk
