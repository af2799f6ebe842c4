#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "platform/virtual_midi_api.h"

namespace corvalint::test {

// A scripted driver of virtual MIDI ports, installed for as long as it lives. Its handles are
// numbers, counted from 1 in the order of creation, 0 for none. It logs every call; a test claims
// the whole log with TakeCalls, and what it left unclaimed fails it:
//   create(Piano) = 1, send(1, 90 3C 7F), close(1)
//
// It behaves as the real one where it matters: a name that is taken is refused, and closing a port
// waits for the callbacks that run for it. Using a handle after its end fails the test, and so does
// a close that waits for longer than any sane callback takes. Any thread.
class FakeVirtualMidi {
 public:
  using Bytes = std::vector<std::uint8_t>;
  using Calls = std::vector<std::string>;

  // What a port was made with.
  struct Creation {
    std::u16string name;
    std::uint32_t maximumSysex = 0;
    std::uint32_t flags = 0;
  };

  FakeVirtualMidi();
  ~FakeVirtualMidi();
  FakeVirtualMidi(const FakeVirtualMidi&) = delete;
  FakeVirtualMidi& operator=(const FakeVirtualMidi&) = delete;

  // Every creation fails from now on, or works again.
  void RefusePorts(bool refuse);
  // Lets several ports have one name, which the real driver does not.
  void AllowEqualNames();
  // What the sends answer; 1 at first.
  void AnswerSendsWith(std::int32_t answer);

  // Each runs inside the call of that kind, with no lock of the fake held: the first with the
  // number that the port is about to get, before anybody can use its handle, the second before the
  // close waits for running callbacks, the third before the bytes are taken.
  void WhenCreating(std::function<void(int)> action);
  void WhenClosing(std::function<void(int)> action);
  void WhenSending(std::function<void(int)> action);

  // The calls since the last time, oldest first.
  Calls TakeCalls();
  Creation Created(int port) const;

  // A desktop program writes into a port: the port's callback runs on the calling thread, and a
  // close waits until it has returned. False when the port is closed.
  bool Write(int port, Bytes bytes);
  // Calls the port's callback whether or not the port is open, as a driver does that is late (or
  // early, within WhenCreating). Nobody waits for it.
  void CallBack(int port, Bytes bytes);

 private:
  struct Port {
    Creation creation;
    VirtualMidiCallback callback = nullptr;
    std::uintptr_t instance = 0;
    bool open = false;
    int callbacksRunning = 0;
  };

  static VirtualMidiHandle Create(const char16_t* name, VirtualMidiCallback callback,
                                  std::uintptr_t instance, std::uint32_t maximumSysex,
                                  std::uint32_t flags);
  static std::int32_t Send(VirtualMidiHandle handle, const std::uint8_t* data,
                           std::uint32_t length);
  static void Close(VirtualMidiHandle handle);

  bool MayOpen(const std::u16string& name) const;

  VirtualMidiApi api;
  mutable std::mutex mutex;
  std::condition_variable callbackEnded;
  std::map<int, Port> ports;
  Calls calls;
  bool refuse = false;
  bool equalNames = false;
  std::int32_t sendAnswer = 1;
  std::function<void(int)> whenCreating, whenClosing, whenSending;
};

}  // namespace corvalint::test
