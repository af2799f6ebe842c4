// What is sent through a port before its socket has a number, or when it gets none at all.
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "support/osc_port_fixture.h"

namespace corvalint {
namespace {

using namespace test;

using Binds = std::vector<ScriptedDatagrams::Bind>;

class EarlyPort : public OscPortFixture {
 protected:
  // A port through which something is sent before each of its binds. `lines` of standard error say
  // how many of these were refused.
  PortPointer SentThroughEarly(std::uint16_t bindPort, std::string& lines) {
    testing::internal::CaptureStderr();
    datagrams.BeforeBind(
        [this] { table->Find(Key(program.Port()))->SendToDestination("early", 5); });
    PortPointer port = Ready(bindPort, program.Port());
    lines = testing::internal::GetCapturedStderr();
    return port;
  }
  UdpSocketState State() const { return StateOfSocket(datagrams.Opened().front()); }

  static constexpr const char* kSendFailed = "sendto() failed\n";
};

TEST_F(EarlyPort, HasItsNumberWhateverIsSentBefore) {
  std::string lines;
  const PortPointer port = SentThroughEarly(number, lines);
  EXPECT_EQ(lines, kSendFailed);
  EXPECT_EQ(datagrams.Binds(), (Binds{{number, 0}}));
  EXPECT_EQ(State().address, "127.0.0.1");
  EXPECT_EQ(State().port, number);
  ExpectAlive(number, Key(number));
  EXPECT_TRUE(program.Silent());
  port->SendToDestination("in time", 7);
  EXPECT_EQ(program.Receive(), "in time");
}

TEST_F(EarlyPort, IsOnLoopbackAloneWhateverIsSentBeforeAFreeNumberReplacesItsOwn) {
  const UdpProgram other;
  std::string lines;
  const PortPointer port = SentThroughEarly(other.Port(), lines);
  EXPECT_EQ(lines, std::string(kSendFailed) + kSendFailed);
  EXPECT_EQ(datagrams.Binds(), (Binds{{other.Port(), -1}, {0, 0}}));
  EXPECT_EQ(State().address, "127.0.0.1");
  ExpectAlive(State().port, Key(other.Port()));
  EXPECT_TRUE(program.Silent());
  port->SendToDestination("in time", 7);
  EXPECT_EQ(program.Receive(), "in time");
}

TEST_F(EarlyPort, RefusesWhatIsSentWhileItsBindIsTriedAgain) {
  datagrams.BindAnswers({-1111, -1111});
  testing::internal::CaptureStderr();
  clock.WhenSleeping(
      [this](std::uint32_t) { table->Find(Key(program.Port()))->SendToDestination("early", 5); });
  table->CreatePort(program.Port(), number, "127.0.0.1");
  for (const int status : {2, 2}) EXPECT_EQ(owner.Next(), PortReport(Key(number), status));
  EXPECT_EQ(owner.Next(), PortReport(Key(number), 1));
  clock.WhenSleeping(nullptr);  // the table's end may sleep too
  EXPECT_EQ(testing::internal::GetCapturedStderr(), std::string(kSendFailed) + kSendFailed);
  EXPECT_EQ(State().address, "127.0.0.1");
  EXPECT_EQ(State().port, number);
  ExpectAlive(number, Key(number));
}

// --- no number at all

class PortWithoutANumber : public EarlyPort {
 protected:
  PortWithoutANumber() {
    datagrams.BindAnswers({-1});
    datagrams.FreeBindAnswers({-1});
  }
  std::string LogLine() const {
    return "ERROR OSC port " + std::to_string(number) +
           ": no free number, it neither hears nor sends";
  }
};

TEST_F(PortWithoutANumber, SaysThatItIsReadyAndNeverSends) {
  std::string lines;
  const PortPointer port = SentThroughEarly(number, lines);
  EXPECT_EQ(lines, std::string(kSendFailed) + kSendFailed);
  EXPECT_EQ(port->status, 1u);
  EXPECT_EQ(log.Lines(), std::vector<std::string>{LogLine()});
  testing::internal::CaptureStderr();
  port->SendToDestination("late", 4);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), kSendFailed);
  EXPECT_TRUE(program.Silent());
  EXPECT_EQ(State().port, 0);
}

// Its wait sees nothing but wake-ups, and each of them costs one more wait.
TEST_F(PortWithoutANumber, WaitsUntilItIsRemoved) {
  PortPointer port = Ready();
  while (datagrams.IdleWaits() < 1) std::this_thread::yield();
  Use<SocketApi>().wake(datagrams.Wakers().front());
  while (datagrams.IdleWaits() < 2) std::this_thread::yield();
  EXPECT_EQ(console.Take(), "");
  table->RemovePort(Key(program.Port()));
  threads.JoinAll();
  EXPECT_EQ(console.Take(), "Finished\n");
  EXPECT_EQ(datagrams.IdleWaits(), 2);
  EXPECT_EQ(datagrams.Waits(), 0);
  EXPECT_EQ(datagrams.Receives(), 0);
  port.reset();
  EXPECT_EQ(datagrams.OpenNow(), 0u);
  EXPECT_EQ(datagrams.WakersOpenNow(), 0);
}

TEST_F(PortWithoutANumber, EndsWithItsTable) {
  Ready();
  EndAll();
  EXPECT_EQ(console.Take(), "Finished\n");
  EXPECT_EQ(datagrams.OpenNow(), 0u);
}

TEST_F(PortWithoutANumber, EndsWhenItIsStoppedBeforeItWaits) {
  owner.WhenSending([this] { table->RemoveAll(); });
  table->CreatePort(program.Port(), number, "127.0.0.1");
  threads.JoinAll();
  EXPECT_EQ(console.Take(), "Finished\n");
  EXPECT_EQ(datagrams.IdleWaits(), 0);
  EXPECT_EQ(datagrams.OpenNow(), 0u);
}

TEST_F(PortWithoutANumber, LeavesItsNumberToTheNext) {
  Ready();
  table->RemoveAll();
  Ready();
  ExpectAlive(number, Key(number));
}

// --- a stop on the way

TEST_F(EarlyPort, ThatIsStoppedBeforeItsBindClosesItsSocketAndLeavesItsNumber) {
  datagrams.BeforeOpen([this] { table->RemoveAll(); });
  table->CreatePort(program.Port(), number, "127.0.0.1");
  threads.JoinAll();
  datagrams.BeforeOpen(nullptr);
  EXPECT_EQ(owner.Take(), Packets{PortReport(Key(number), 1)});
  EXPECT_EQ(datagrams.Opened().size(), 1u);
  EXPECT_EQ(datagrams.OpenNow(), 0u);
  EXPECT_EQ(datagrams.Binds(), Binds{});
  Ready();
  ExpectAlive(number, Key(number));
}

}  // namespace
}  // namespace corvalint
