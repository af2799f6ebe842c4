// The stand-ins and the harness against a small program that uses them as the product does:
// devices, rules for calls, and the process as a whole.
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <thread>

#include "device/loopback.h"
#include "device/raw_time.h"
#include "harness/desk_selftest.h"

namespace corvalint::harness {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// One loopback connection that gives back what it gets.
std::thread EchoOnce(std::uint16_t& port) {
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = device::Loopback(0);
  socklen_t size = sizeof(address);
  EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), size), 0);
  EXPECT_EQ(listen(listener, 1), 0);
  getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
  port = ntohs(address.sin_port);
  return std::thread([listener] {
    const int stream = accept(listener, nullptr, nullptr);
    char bytes[5];
    EXPECT_EQ(recv(stream, bytes, sizeof(bytes), MSG_WAITALL), 5);
    EXPECT_EQ(send(stream, bytes, sizeof(bytes), MSG_NOSIGNAL), 5);
    close(stream);
    close(listener);
  });
}

TEST_F(DeskSelftest, DevicesAreAnnouncedOnceAndTheirStreamsReachTheLoopbackPort) {
  std::uint16_t tcpPort = 0;
  std::thread echo = EchoOnce(tcpPort);
  control.SetDevice("phone", {.identifier = "udid-1", .connectionId = 5, .tcpPort = tcpPort});
  control.Attach("phone");
  control.Open();
  ASSERT_EQ(Do("libraries"), 4);
  EXPECT_EQ(Do("restore"), 0);
  EXPECT_EQ(Do("subscribe"), 0);
  EXPECT_TRUE(control.WaitForEvent([](const auto& event) { return event == "announced phone"; }));
  EXPECT_EQ(Do("identifier"), 1);
  const ProcessCounts before = control.Counts();
  EXPECT_EQ(Do("stream"), 0);
  echo.join();
  EXPECT_EQ(control.Counts().sockets, before.sockets);
  control.Detach("phone");
  control.Restore("dfu-connect");
  ASSERT_TRUE(control.WaitForNotifications());
  EXPECT_THAT(Heard(), ElementsAre("notification 1", "identifier udid-1", "stream hello",
                                   "notification 2", "dfu-connect"));
  EXPECT_THAT(control.Violations(), IsEmpty());
}

TEST_F(DeskSelftest, AnswersOfDevicesFollowTheirScript) {
  control.SetDevice("phone", {.withoutIdentifier = true,
                              .connectionId = 5,
                              .connectAnswers = {0xE8000028, 0},
                              .streamAnswers = {3}});
  control.Attach("phone");
  control.Open();
  ASSERT_EQ(Do("libraries"), 4);
  ASSERT_EQ(Do("subscribe"), 0);
  EXPECT_TRUE(control.WaitForEvent([](const auto& event) { return event == "announced phone"; }));
  EXPECT_EQ(Do("identifier"), 0);
  EXPECT_EQ(Do("stream"), -1);
  EXPECT_EQ(Do("stream"), 3);
  const auto names = control.CallNames();
  EXPECT_EQ(std::count(names.begin(), names.end(), "AMDeviceConnect"), 2);
  EXPECT_EQ(control.CallCounts()["USBMuxConnectByPort"], 1u);
}

TEST_F(DeskSelftest, HeldCallsStayInsideUntilReleased) {
  control.AddOutput("Synth");
  control.Open();
  control.Hold("midiOutOpen");
  std::thread caller([this] { EXPECT_EQ(Do("open-output 0"), 0); });
  EXPECT_TRUE(control.WaitForHeld("midiOutOpen"));
  control.Release("midiOutOpen");
  caller.join();
}

TEST_F(DeskSelftest, RulesMayConcernOneFirstArgumentOnly) {
  control.AddOutput("One");
  control.AddOutput("Two");
  control.Open();
  control.Fail("midiOutOpen", kAllocated, {.times = 1, .firstArgument = 1});
  EXPECT_EQ(Do("open-output 0"), 0);
  EXPECT_EQ(Do("open-output 1"), kAllocated);
  EXPECT_EQ(Do("open-output 1"), 0);
}

TEST_F(DeskSelftest, SurvivesEverythingAtOnce) {
  const int input = control.AddInput("Keys");
  control.AddOutput("Synth");
  control.Open();
  ASSERT_EQ(Do("libraries"), 4);
  std::thread user([this] { EXPECT_GT(Do("stress 2000"), 20); });
  const int job = control.Inject(input,
                                 {ItemOf({0x90, 1, 1}),
                                  ItemOf({0xF0, 1, 2, 3, 4, 0xF7}),
                                  {InputItem::Kind::kPartial, {0xF0, 1}}},
                                 {.repeat = 100000});
  for (int i = 0; i < 100; ++i) {
    control.RemoveOutput(control.AddOutput("Come and go"));
    control.RemoveInput(control.AddInput("Come and go"));
    for (const Port& port : control.Ports()) {
      if (!port.open) continue;
      try {
        control.Play(port.id, {{0x91, 1, 1}}, {.repeat = 10});
      } catch (const std::runtime_error&) {
        // It has been closed meanwhile.
      }
    }
  }
  user.join();
  EXPECT_TRUE(control.WaitForJob(job).has_value());
  EXPECT_THAT(Heard(), IsEmpty());
  EXPECT_THAT(control.Violations(), IsEmpty());
  const ProcessCounts counts = control.Counts();
  EXPECT_EQ(counts.openInputs + counts.openOutputs + counts.openPorts, 0u);
}

TEST_F(DeskSelftest, CarriesBulkAndCountsTheProcess) {
  constexpr std::size_t kMessages = 200000;
  control.Open();
  control.Mute("virtualMIDISendData");
  ASSERT_EQ(Do("libraries"), 4);
  ASSERT_EQ(Do("create-port Bulk"), 0);
  const int port = control.Ports().front().id;
  ASSERT_EQ(Do("send-port xyz " + std::to_string(kMessages)), static_cast<long long>(kMessages));
  ASSERT_TRUE(control.WaitForPortMessages(port, kMessages));
  const ProcessCounts counts = control.Counts();
  EXPECT_GT(counts.handles, 5u);
  EXPECT_EQ(counts.openPorts, 1u);
  EXPECT_GE(counts.threads, 3u);
  EXPECT_EQ(counts.sockets, 1u);  // the control connection
}

// What the program takes from the heap is told apart from what the desk itself takes.
TEST_F(DeskSelftest, TellsWhoseTheHeapIs) {
  constexpr std::uint64_t kTaken = 1000000;
  constexpr std::uint64_t kOtherwise = 50000;  // of the program's and the desk's own doings
  control.Open();
  ASSERT_EQ(Do("libraries"), 4);
  const ProcessCounts before = control.Counts();
  EXPECT_GT(before.deskHeapBytes, 0u);
  EXPECT_GT(before.heapBytes, before.deskHeapBytes);
  ASSERT_EQ(Do("take " + std::to_string(kTaken)), 0);
  const ProcessCounts after = control.Counts();
  EXPECT_GE(after.heapBytes, before.heapBytes + kTaken);
  EXPECT_LE(after.heapBytes, before.heapBytes + kTaken + kOtherwise);
  EXPECT_LE(after.deskHeapBytes, before.deskHeapBytes + kOtherwise);
  ASSERT_EQ(Do("take 0"), 0);
  EXPECT_LE(control.Counts().heapBytes, before.heapBytes + kOtherwise);
}

TEST_F(DeskSelftest, TheDeskReadsTheClockOfTheNativeSide) {
  control.Open();
  for (int i = 0; i < 20; ++i) {
    const std::int64_t before = device::RawNow();
    const std::int64_t there = control.Ping();
    const std::int64_t after = device::RawNow();
    EXPECT_GE(there, before - 100);  // its steps are 100 ns
    EXPECT_LE(there, after);
  }
}

TEST_F(DeskSelftest, MissingPartsOfTheMachineAreMissing) {
  DeskOptions options = Options();
  options.asl = false;
  options.virtualMidi = false;
  options.open = true;
  Desk poor(options);
  EXPECT_EQ(poor.GetHost().Ask("libraries").at("value"), 2);
  options.deviceLibraryText = "Z:\\nowhere\\iTunesMobileDevice.dll";
  options.installDir = false;
  Desk poorer(options);
  EXPECT_EQ(poorer.GetHost().Ask("libraries").at("value"), 0);
}

}  // namespace
}  // namespace corvalint::harness
