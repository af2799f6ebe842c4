// What the system can refuse a port, and what the port makes of it.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "ports/local_osc_port.h"
#include "support/osc_port_fixture.h"

namespace corvalint {
namespace {

using namespace test;

using Binds = std::vector<ScriptedDatagrams::Bind>;
using Answer = ScriptedDatagrams::WaitAnswer;

class LocalOSCPortFailures : public OscPortFixture {
 protected:
  PortPointer Create() { return table->CreatePort(program.Port(), number, "127.0.0.1"); }
  void ExpectEnded() {
    threads.JoinAll();
    EXPECT_EQ(datagrams.OpenNow(), 0u);
  }
};

// --- no socket

TEST_F(LocalOSCPortFailures, NoSocketIsReportedAndTriedAgainAfterFiveSeconds) {
  datagrams.OpenAnswers({-1, 0, -7});
  const PortPointer port = Create();
  for (const int status : {3, 3, 3, 1}) EXPECT_EQ(owner.Next(), PortReport(Key(number), status));
  EXPECT_EQ(console.Take(),
            "error creating socket || error: -1\nerror creating socket || error: 0\n"
            "error creating socket || error: -7\n");
  EXPECT_EQ(clock.TakeSleeps(), (Sleeps{5000, 5000, 5000}));
  EXPECT_EQ(port->status, 1u);
  ExpectAlive(number, Key(number));
}

TEST_F(LocalOSCPortFailures, TheStatusIsThreeWhileThereIsNoSocket) {
  datagrams.OpenAnswers({-1});
  std::atomic<std::uint32_t> during{9};
  PortPointer port;
  threads.HoldNext();
  port = Create();
  clock.WhenSleeping([&](std::uint32_t) { during = port->status.load(); });
  owner.WhenSending([&] { port->Stop(); });
  threads.RunHeld();
  EXPECT_EQ(port->status, 3u);
  EXPECT_EQ(during, 9u);  // stopped while it reported: no further try
  EXPECT_EQ(owner.Take(), Packets{PortReport(Key(number), 3)});
  EXPECT_EQ(console.Take(), "error creating socket || error: -1\nFinished\n");
  EXPECT_EQ(clock.TakeSleeps(), Sleeps{});
}

TEST_F(LocalOSCPortFailures, AStopWhileItSleepsEndsThePortAtTheNextTry) {
  datagrams.OpenAnswers({-1, -1, -1});
  threads.HoldNext();
  const PortPointer port = Create();
  clock.WhenSleeping([&](std::uint32_t) { port->Stop(); });
  threads.RunHeld();
  EXPECT_EQ(owner.Take(), (Packets{PortReport(Key(number), 3), PortReport(Key(number), 3)}));
  EXPECT_EQ(console.Take(),
            "error creating socket || error: -1\nerror creating socket || error: -1\nFinished\n");
  EXPECT_EQ(clock.TakeSleeps(), Sleeps{5000});
}

TEST_F(LocalOSCPortFailures, ASocketThatComesAfterTheStopIsClosedAgain) {
  datagrams.OpenAnswers({-1});
  threads.HoldNext();
  const PortPointer port = Create();
  clock.WhenSleeping([&](std::uint32_t) { port->Stop(); });
  threads.RunHeld();
  EXPECT_EQ(owner.Take(), (Packets{PortReport(Key(number), 3), PortReport(Key(number), 1)}));
  EXPECT_EQ(datagrams.Opened().size(), 1u);
  EXPECT_EQ(datagrams.Binds(), Binds{});
  EXPECT_EQ(datagrams.Waits(), 0);
  ExpectEnded();
}

// Nobody could end its wait.
TEST_F(LocalOSCPortFailures, ASocketWithoutAWakerIsNone) {
  datagrams.RefuseWakers(2);
  Create();
  for (const int status : {3, 3, 1}) EXPECT_EQ(owner.Next(), PortReport(Key(number), status));
  EXPECT_EQ(console.Take(),
            "error creating socket || error: 0\nerror creating socket || error: 0\n");
  EXPECT_EQ(clock.TakeSleeps(), (Sleeps{5000, 5000}));
  EXPECT_EQ(datagrams.Opened().size(), 3u);
  EXPECT_EQ(datagrams.OpenNow(), 1u);
  ExpectAlive(number, Key(number));
}

// --- the bind

TEST_F(LocalOSCPortFailures, APortWhoseNumberIsTakenSaysThatItIsReadyAndSends) {
  const UdpProgram other;  // has the number
  const PortPointer port = Ready(other.Port(), program.Port());
  EXPECT_EQ(port->status, 1u);
  port->SendToDestination("out", 3);
  EXPECT_EQ(program.Receive(), "out");
  other.Send(program.Port(), "in");  // the other one works as before
  EXPECT_EQ(program.Receive(), "in");
  program.Send(other.Port(), "in");
  EXPECT_EQ(other.Receive(), "in");
  EXPECT_EQ(console.Take(), "");
  EXPECT_EQ(clock.TakeSleeps(), Sleeps{});
}

TEST_F(LocalOSCPortFailures, APortWhoseNumberIsTakenIsOnLoopbackAloneAlsoAfterASend) {
  const UdpProgram other;
  const PortPointer port = Ready(other.Port(), program.Port());
  EXPECT_EQ(datagrams.Binds(), (Binds{{other.Port(), -1}, {0, 0}}));
  const int socket = datagrams.Opened().front();
  const UdpSocketState before = StateOfSocket(socket);
  EXPECT_EQ(before.address, "127.0.0.1");
  EXPECT_NE(before.port, 0);
  port->SendToDestination("out", 3);
  EXPECT_EQ(StateOfSocket(socket).address, "127.0.0.1");
  EXPECT_EQ(StateOfSocket(socket).port, before.port);
}

TEST_F(LocalOSCPortFailures, APortWhoseNumberIsTakenEndsAndIsClosedByItsDestructor) {
  const UdpProgram other;
  PortPointer port = Ready(other.Port(), program.Port());
  table->RemoveAll();
  threads.JoinAll();
  EXPECT_EQ(console.Take(), "Finished\n");
  EXPECT_EQ(datagrams.OpenNow(), 1u);
  port.reset();
  EXPECT_EQ(datagrams.OpenNow(), 0u);
  EXPECT_EQ(datagrams.WakersOpenNow(), 0);
}

TEST_F(LocalOSCPortFailures, APortIsThereOnceTheOtherHasLeftItsNumber) {
  {
    const UdpProgram other;
    Ready(other.Port(), program.Port());
    table->RemoveAll();
  }
  Ready();
  ExpectAlive(number, Key(number));
}

// Only a result that no bind has counts as a failure.
TEST_F(LocalOSCPortFailures, ResultsDownToTheBoundCountAsReady) {
  datagrams.BindAnswers({-1110});
  Ready();
  EXPECT_EQ(datagrams.Binds(), (Binds{{number, -1110}, {0, 0}}));
  EXPECT_EQ(console.Take(), "");
}

TEST_F(LocalOSCPortFailures, ABindBelowTheBoundIsReportedAndTriedAgainAfterFiveSeconds) {
  datagrams.BindAnswers({-1111, -20000});
  std::vector<std::uint32_t> during;
  threads.HoldNext();
  const PortPointer port = Create();
  clock.WhenSleeping([&](std::uint32_t) { during.push_back(port->status); });
  std::thread runs([&] { threads.RunHeld(); });
  for (const int status : {2, 2, 1}) EXPECT_EQ(owner.Next(), PortReport(Key(number), status));
  ExpectAlive(number, Key(number));
  EXPECT_EQ(console.Take(), "bind failed  because -1111 \nbind failed  because -20000 \n");
  EXPECT_EQ(clock.TakeSleeps(), (Sleeps{5000, 5000}));
  EXPECT_EQ(during, (std::vector<std::uint32_t>{2, 2}));
  EXPECT_EQ(datagrams.Binds(), (Binds{{number, -1111}, {number, -20000}, {number, 0}}));
  table->RemoveAll();
  runs.join();
}

TEST_F(LocalOSCPortFailures, AStopDuringAFailingBindEndsThePort) {
  datagrams.BindAnswers({-1111, -1111});
  threads.HoldNext();
  const PortPointer port = Create();
  owner.WhenSending([&] { port->Stop(); });
  threads.RunHeld();
  EXPECT_EQ(owner.Take(), Packets{PortReport(Key(number), 2)});
  EXPECT_EQ(port->status, 2u);
  EXPECT_EQ(console.Take(), "bind failed  because -1111 \nFinished\n");
  EXPECT_EQ(clock.TakeSleeps(), Sleeps{});
}

// --- receiving

TEST_F(LocalOSCPortFailures, AFailedReceiveSendsNothingAndThePortGoesOn) {
  datagrams.ReceiveErrors({SocketError::other, SocketError::other, SocketError::other});
  Ready();
  program.Send(number, "after three failures");
  EXPECT_EQ(owner.Next(), PortData(Key(number), "after three failures"));
  EXPECT_EQ(clock.TakeSleeps(), (Sleeps{1, 1, 1}));  // one that lasts must not spin
  EndAll();
  EXPECT_EQ(owner.Take(), Packets{});
  EXPECT_EQ(console.Take(), "Finished\n");
}

TEST_F(LocalOSCPortFailures, ADatagramThatVanishedIsWaitedForAgain) {
  datagrams.ReceiveErrors({SocketError::wouldBlock, SocketError::interrupted});
  Ready();
  program.Send(number, "at last");
  EXPECT_EQ(owner.Next(), PortData(Key(number), "at last"));
  EXPECT_EQ(clock.TakeSleeps(), Sleeps{});
}

TEST_F(LocalOSCPortFailures, AFailedReceiveEndsThePortThatIsStopped) {
  datagrams.ReceiveErrors({SocketError::other});
  const PortPointer port = Ready();
  datagrams.BeforeReceive([&] { port->Stop(); });
  program.Send(number, "unheard");
  ExpectEnded();
  EXPECT_EQ(owner.Take(), Packets{});
}

// --- waiting

TEST_F(LocalOSCPortFailures, AnInterruptedWaitIsBegunAgain) {
  datagrams.WaitAnswers({Answer{{.failed = true}, SocketError::interrupted},
                         Answer{{.failed = true}, SocketError::interrupted}});
  Ready();
  ExpectAlive(number, Key(number));
}

TEST_F(LocalOSCPortFailures, AWaitThatSeesNothingIsBegunAgain) {
  datagrams.WaitAnswers({Answer{{.woken = true}}, Answer{}});
  Ready();
  ExpectAlive(number, Key(number));
}

// A port whose thread has ended stays in the table like any other.
class EndedPort : public LocalOSCPortFailures,
                  public testing::WithParamInterface<ScriptedDatagrams::WaitAnswer> {};

TEST_P(EndedPort, StaysInTheTableUntilItIsRemoved) {
  datagrams.WaitAnswers({GetParam()});
  PortPointer port = Ready();
  threads.JoinAll();
  EXPECT_EQ(console.Take(), "Finished\n");
  EXPECT_EQ(port.use_count(), 2);  // the table's and this one
  EXPECT_EQ(datagrams.OpenNow(), 0u);
  EXPECT_EQ(table->Find(Key(program.Port())), port);
  EXPECT_EQ(table->CreatePort(program.Port(), number, "127.0.0.1"), port);
  EXPECT_FALSE(port->fresh);

  testing::internal::CaptureStderr();
  port->SendToDestination("late", 4);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "sendto() failed\n");

  table->RemovePort(Key(program.Port()));
  EXPECT_EQ(table->Count(), 0u);
  EXPECT_EQ(port.use_count(), 1);
  EXPECT_EQ(threads.OpenHandles(), 0u);
  Ready();  // the number is free again
  ExpectAlive(number, Key(number));
}

INSTANTIATE_TEST_SUITE_P(AfterItsWait, EndedPort,
                         testing::Values(Answer{{.failed = true}, SocketError::other},
                                         Answer{{.exceptional = true}},
                                         Answer{{.readable = true, .exceptional = true}}),
                         [](const testing::TestParamInfo<Answer>& wait) {
                           return wait.param.seen.failed     ? "Failed"
                                  : wait.param.seen.readable ? "WasReadableAndExceptional"
                                                             : "WasExceptional";
                         });

// --- exceptions

TEST_F(LocalOSCPortFailures, AnExceptionOfItsOwnerEndsThePortAlone) {
  const std::uint16_t other = FreeUdpPort();
  Ready();
  Ready(other, 7001);
  owner.WhenSending([] { throw std::runtime_error("100%s full"); });
  program.Send(number, "too much");
  EXPECT_EQ(owner.Next(), PortData(Key(number), "too much"));
  while (log.Lines().empty()) std::this_thread::yield();
  owner.WhenSending(nullptr);
  EXPECT_EQ(log.Lines().front(), "ERROR OSC port " + std::to_string(number) + " ended: 100%s full");
  ExpectAlive(other, Key(other));
  EXPECT_EQ(table->Count(), 2u);
  table->RemovePort(Key(program.Port()));
  EXPECT_EQ(table->Count(), 1u);
}

}  // namespace
}  // namespace corvalint
