// The simulated device being slow, stalling, cutting the cable and refusing connections.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <memory>

#include "device/raw_time.h"
#include "device/simulated_device.h"
#include "device_test_client.h"

namespace corvalint::device {
namespace {

using ::testing::ElementsAre;

TEST(DeviceManners, SendsInPiecesThatLeaveApart) {
  SimulatedDevice device;
  device.SetPieceSize(3);
  device.SetSendRate(3);
  TestClient client(device.Port());
  ASSERT_TRUE(device.WaitForStream(1, kLong));
  const std::int64_t start = RawNow();
  ASSERT_TRUE(device.SendPacket(NumberedMidi(1)));
  const Bytes expected = EncodeFrame(NumberedMidi(1));
  EXPECT_EQ(client.Read(expected.size()), expected);
  // The first piece leaves at once and each other one a millisecond of the clock later at least;
  // the clock's first millisecond has begun before the start.
  const auto pieces = static_cast<std::int64_t>((expected.size() + 2) / 3);
  EXPECT_GE(RawNow() - start, (pieces - 2) * 1'000'000);
  EXPECT_TRUE(device.WaitUntilSent(kLong));
  EXPECT_EQ(device.Record().Counters().framesSent, 1u);
}

TEST(DeviceManners, ReadsNoFasterThanItsRate) {
  SimulatedDevice device;
  device.SetReadRate(100);
  TestClient client(device.Port());
  const Bytes frame = EncodeFrame(EncodeMidi("Keys", 7, 1, Bytes(4000, 0x11)));
  ASSERT_TRUE(device.WaitForStream(1, kLong));
  const std::int64_t start = RawNow();
  ASSERT_TRUE(client.Send(frame));
  ASSERT_TRUE(device.Record().WaitForMessages(1, kLong));
  const auto turns = static_cast<std::int64_t>((frame.size() + 99) / 100);
  EXPECT_GE(device.Record().AllMessages()[0].arrival - start, (turns - 2) * 1'000'000);
}

TEST(DeviceManners, StalledItTakesNothingAndLaterAll) {
  DeviceOptions options;
  options.receiveBuffer = 4096;
  SimulatedDevice device(options);
  TestClient client(device.Port(), 0, 8192);
  ASSERT_TRUE(device.WaitForStream(1, kLong));
  device.Stall();
  FrameBatch batch;
  for (std::int32_t i = 0; i < 50'000; ++i) batch.AddPacket(NumberedMidi(i));
  const Bytes& all = batch.Data();
  std::size_t sent = 0;
  while (const std::size_t count = client.SendWithoutWaiting(
             Bytes(all.begin() + static_cast<std::ptrdiff_t>(sent), all.end()))) {
    sent += count;
  }
  ASSERT_LT(sent, all.size()) << "the pipe never filled";
  EXPECT_FALSE(device.Record().WaitForMessages(1, kShort));
  device.Resume();
  ASSERT_TRUE(client.Send(Bytes(all.begin() + static_cast<std::ptrdiff_t>(sent), all.end())));
  ASSERT_TRUE(device.Record().WaitForMessages(batch.Frames(), kLong));
  const auto times = TimesOf(device.Record().AllMessages());
  for (std::size_t i = 0; i < times.size(); ++i) {
    ASSERT_EQ(times[i], static_cast<std::int64_t>(i));
  }
  EXPECT_EQ(device.Record().Counters().violations, 0u);
}

TEST(DeviceManners, StallsAfterExactlySoManyFrames) {
  SimulatedDevice device;
  device.StallAfterFrames(2);
  TestClient client(device.Port());
  FrameBatch batch;
  for (std::int32_t i = 0; i < 5; ++i) batch.AddPacket(NumberedMidi(i));
  ASSERT_TRUE(client.Send(batch.Data()));
  client.Finish();
  ASSERT_TRUE(device.Record().WaitForMessages(2, kLong));
  EXPECT_FALSE(device.Record().WaitForMessages(3, kShort));
  EXPECT_TRUE(device.Connected());
  device.Resume();
  EXPECT_TRUE(device.Record().WaitForMessages(5, kLong));
  EXPECT_TRUE(device.WaitForStreamEnd(1, kLong));
}

TEST(DeviceManners, AResetEndsAStalledStream) {
  SimulatedDevice device;
  device.Stall();
  TestClient client(device.Port());
  ASSERT_TRUE(device.WaitForStream(1, kLong));
  client.Reset();
  EXPECT_TRUE(device.WaitForStreamEnd(1, kLong));
}

TEST(DeviceManners, CutsTheCableEitherWayAndListensAgain) {
  SimulatedDevice device;
  std::uint64_t stream = 0;
  for (const CutHow how : {CutHow::kReset, CutHow::kFinish}) {
    TestClient client(device.Port());
    ASSERT_TRUE(device.WaitForStream(++stream, kLong));
    device.Cut(how);
    EXPECT_TRUE(client.ReadToEnd().empty());
    EXPECT_EQ(client.EndError(), how == CutHow::kReset ? ECONNRESET : 0);
    EXPECT_TRUE(device.WaitForStreamEnd(stream, kLong));
  }
  TestClient client(device.Port());
  EXPECT_TRUE(device.WaitForStream(3, kLong));
}

TEST(DeviceManners, CutsAtAnOffsetOfAFrame) {
  const Bytes whole = EncodeFrame(NumberedMidi(1));
  SimulatedDevice device;
  std::uint64_t stream = 0;
  for (const CutHow how : {CutHow::kReset, CutHow::kFinish}) {
    for (const std::size_t offset : {std::size_t{1}, kFrameHeaderSize, whole.size() - 1}) {
      TestClient client(device.Port());
      ASSERT_TRUE(device.WaitForStream(++stream, kLong));
      ASSERT_TRUE(device.SendRaw(whole));
      ASSERT_TRUE(device.SendAndCut(whole, offset, how));
      device.SendRaw(whole);  // too late, whether it is taken or not
      EXPECT_EQ(client.ReadToEnd().size(), whole.size() + offset);
      EXPECT_EQ(client.EndError(), how == CutHow::kReset ? ECONNRESET : 0);
      ASSERT_TRUE(device.WaitForStreamEnd(stream, kLong));
    }
  }
}

TEST(DeviceManners, CutsAfterReceivingSoManyBytes) {
  SimulatedDevice device;
  const Bytes frame = EncodeFrame(NumberedMidi(1));
  device.CutAfterReceiving(frame.size() + 5, CutHow::kReset);
  TestClient client(device.Port());
  Bytes two = frame;
  two.insert(two.end(), frame.begin(), frame.end());
  ASSERT_TRUE(client.Send(two));
  ASSERT_TRUE(device.WaitForStreamEnd(1, kLong));
  EXPECT_EQ(device.Record().Counters().bytesReceived, frame.size() + 5);
  EXPECT_EQ(device.Record().Counters().messagesReceived, 1u);
  // The cable was cut here, so the half frame is nobody's mistake.
  EXPECT_EQ(device.Record().Counters().violations, 0u);
  // Only once.
  TestClient next(device.Port());
  ASSERT_TRUE(next.Send(two));
  EXPECT_TRUE(device.Record().WaitForMessages(3, kLong));
}

TEST(DeviceManners, RefusesConnectionsUntilToldOtherwise) {
  SimulatedDevice device;
  TestClient before(device.Port());
  ASSERT_TRUE(device.WaitForStream(1, kLong));
  device.RefuseConnections();
  EXPECT_EQ(TestClient(device.Port()).ConnectError(), ECONNREFUSED);
  EXPECT_EQ(TestClient(device.Port()).ConnectError(), ECONNREFUSED);
  ASSERT_TRUE(before.SendPacket(NumberedMidi(1)));
  EXPECT_TRUE(device.Record().WaitForMessages(1, kLong)) << "the open stream stays open";
  device.AcceptConnections();
  before.Close();
  TestClient after(device.Port());
  EXPECT_EQ(after.ConnectError(), 0);
  EXPECT_TRUE(device.WaitForStream(2, kLong));
}

TEST(DeviceManners, ServesOneStreamAtATime) {
  SimulatedDevice device;
  TestClient first(device.Port());
  ASSERT_TRUE(device.WaitForStream(1, kLong));
  TestClient second(device.Port());
  ASSERT_TRUE(second.SendPacket(NumberedMidi(2)));
  EXPECT_FALSE(device.WaitForStream(2, kShort));
  ASSERT_TRUE(first.SendPacket(NumberedMidi(1)));
  ASSERT_TRUE(device.Record().WaitForMessages(1, kLong));
  first.Close();
  ASSERT_TRUE(device.Record().WaitForMessages(2, kLong));
  const auto messages = device.Record().AllMessages();
  EXPECT_THAT(TimesOf(messages), ElementsAre(1, 2));
  EXPECT_EQ(messages[1].stream, 2u);
}

TEST(DeviceManners, CountsWhatAnEndedStreamDidNotTake) {
  SimulatedDevice device;
  TestClient client(device.Port(), 4096);
  ASSERT_TRUE(device.WaitForStream(1, kLong));
  const Bytes much(32 << 20, 1);
  ASSERT_TRUE(device.SendRaw(much));
  EXPECT_FALSE(device.WaitUntilSent(kShort));
  EXPECT_GT(device.Queued(), 0u);
  client.Reset();
  ASSERT_TRUE(device.WaitForStreamEnd(1, kLong));
  EXPECT_FALSE(device.WaitUntilSent(kShort));
  EXPECT_EQ(device.Queued(), 0u);
  const DeviceCounters counters = device.Record().Counters();
  EXPECT_GT(counters.bytesDropped, 0u);
  EXPECT_EQ(counters.bytesSent + counters.bytesDropped, much.size());
}

TEST(DeviceManners, EndsWithABlockedStreamOpen) {
  std::unique_ptr<TestClient> client;
  {
    SimulatedDevice device;
    client = std::make_unique<TestClient>(device.Port(), 4096);
    ASSERT_TRUE(device.WaitForStream(1, kLong));
    ASSERT_TRUE(device.SendRaw(Bytes(32 << 20, 1)));
    ASSERT_GT(device.Queued(), 0u);
  }
  EXPECT_LT(client->ReadToEnd().size(), std::size_t{32 << 20});
  EXPECT_NE(client->EndError(), EAGAIN);
}

}  // namespace
}  // namespace corvalint::device
