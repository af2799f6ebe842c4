#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "clients/usb_server.h"
#include "support/console_capture.h"
#include "support/fake_clock.h"
#include "support/fake_winmm.h"
#include "support/recording_client.h"
#include "winmidi/midi_endpoint_registry.h"

namespace corvalint::test {

// A condition that one thread waits for and another one brings about.
class Latch {
 public:
  void Open();
  // False, and the test failed, when nobody opened it within half a minute.
  bool Wait();

 private:
  std::mutex mutex;
  std::condition_variable changed;
  bool open = false;
};

// Notes what reaches a delegate, and prints it to standard output between angle brackets, where it
// stands in order with the console's lines:
//   <received Keys 7: 90 3C 7F at 5000>, <source added Keys 7 on>
class RecordingDelegate final : public MidiDelegate {
 public:
  void MidiReceived(const std::uint8_t* data, std::int32_t length, const std::string& name,
                    std::int32_t uniqueId, std::uint64_t timestamp) override;
  void SourceAdded(const MidiEndpoint& source) override;
  void SourceRemoved(const MidiEndpoint& source) override;
  void DestinationAdded(const MidiEndpoint& destination) override;
  void DestinationRemoved(const MidiEndpoint& destination) override;

  std::vector<std::string> TakeReceived();
  // Runs in every MidiReceived, with no lock held.
  void WhenReceiving(std::function<void()> newAction);

 private:
  std::mutex mutex;
  std::vector<std::string> received;
  std::function<void()> action;
};

// The server as the desktop's side sees it, with its two locks and one device. It is `theUsbServer`
// for as long as it lives.
class DeskServer final : public UsbServer {
 public:
  DeskServer();
  ~DeskServer();

  // Prints "?name", tests that it was asked as promised, under `midiLock` and in a scan, and then
  // calls `whenAsked` if there is one.
  bool AnyManagerOwns(const std::string& endpointName) override;
  void BeginDesktopScan() override { ++scans; }
  void EndDesktopScan() override { --scans; }

  // Fails the test when the calling thread holds a lock that MIDI waits for.
  void ExpectNoLockHeld();

  CriticalSection midi;
  std::vector<std::string> published;
  std::function<void()> whenAsked;
  std::atomic<int> scans{0};
  RecordingClient device;
};

// A desk with a scripted winmm, one connected device and a registry of its own. Standard output is
// captured, and each read of the clock moves it on by 1000 ns.
class MidiDesk : public ::testing::Test {
 protected:
  MidiDesk();

  // What was printed since the last time.
  std::string Printed() { return console.Take(); }

  // Lists an endpoint as a scan would, with the number and id given, and plugs nothing in.
  MidiSourcePointer AddSource(const std::string& name, std::uint32_t number, std::int32_t id);
  MidiDestinationPointer AddDestination(const std::string& name, std::uint32_t number,
                                        std::int32_t id);
  MidiResult Open(const MidiSourcePointer& source);
  MidiResult Open(const MidiDestinationPointer& destination);
  void Close(const MidiSourcePointer& source, bool notify);
  // Forgets the winmm calls and the prints so far.
  void Forget();

  ConsoleCapture console;
  FakeWinmm winmm;
  FakeClock clock;
  DeskServer server;
  RecordingDelegate delegate;
  MidiEndpointRegistry registry;
};

}  // namespace corvalint::test
