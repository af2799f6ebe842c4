// The simulated device against a plain TCP client.
#include "device/simulated_device.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <system_error>
#include <thread>

#include "device/raw_time.h"
#include "device_test_client.h"

namespace corvalint::device {
namespace {

using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::HasSubstr;

OscMessage EndpointMessage(const std::string& address, const std::string& name, std::int32_t id) {
  return {address, "si", {name, id}};
}

TEST(SimulatedDevice, GreetsEachStreamFirst) {
  DeviceOptions options;
  options.greeting.AddPacket(EncodeEndpoint("/add_remote_source", "Pad", 4));
  options.greeting.AddPacket(EncodeEndpoint("/add_remote_destination", "Pad", 5));
  SimulatedDevice device(options);
  for (std::uint64_t stream = 1; stream <= 3; ++stream) {
    TestClient client(device.Port());
    ASSERT_TRUE(device.WaitForStream(stream, kLong));
    EXPECT_TRUE(device.SendPacket(EncodeTiming("/init_timing", 3)));
    EXPECT_EQ(client.ReadMessage(), EndpointMessage("/add_remote_source", "Pad", 4));
    EXPECT_EQ(client.ReadMessage(), EndpointMessage("/add_remote_destination", "Pad", 5));
    EXPECT_EQ(client.ReadMessage(), (OscMessage{"/init_timing", "h", {std::int64_t{3}}}));
    client.Close();
    ASSERT_TRUE(device.WaitForStreamEnd(stream, kLong));
  }
  EXPECT_EQ(device.Record().Counters().framesSent, 9u);
}

TEST(SimulatedDevice, AnnouncesAndWithdrawsEndpoints) {
  SimulatedDevice device;
  TestClient client(device.Port());
  ASSERT_TRUE(device.WaitForStream(1, kLong));
  EXPECT_TRUE(device.AnnounceSource("A", 1));
  EXPECT_TRUE(device.AnnounceDestination("B", 2));
  EXPECT_TRUE(device.WithdrawSource("A", 1));
  EXPECT_TRUE(device.WithdrawDestination("B", 2));
  EXPECT_TRUE(device.AnnounceSource("C", "33"));
  EXPECT_EQ(client.ReadMessage(), EndpointMessage("/add_remote_source", "A", 1));
  EXPECT_EQ(client.ReadMessage(), EndpointMessage("/add_remote_destination", "B", 2));
  EXPECT_EQ(client.ReadMessage(), EndpointMessage("/remove_remote_source", "A", 1));
  EXPECT_EQ(client.ReadMessage(), EndpointMessage("/remove_remote_destination", "B", 2));
  EXPECT_EQ(client.ReadMessage(),
            (OscMessage{"/add_remote_source", "ss", {std::string("C"), std::string("33")}}));
}

TEST(SimulatedDevice, SendsMidiWithItsOwnOrAGivenTime) {
  DeviceOptions options;
  options.clock = std::chrono::hours(1000);
  SimulatedDevice device(options);
  TestClient client(device.Port());
  ASSERT_TRUE(device.WaitForStream(1, kLong));
  const std::int64_t before = device.Now();
  EXPECT_TRUE(device.SendMidi("Keys", 7, {0x90, 60, 100}));
  const std::int64_t after = device.Now();
  EXPECT_TRUE(device.SendMidi("Keys", 8, -1, {}));
  const auto first = AsMidi(client.ReadMessage());
  ASSERT_TRUE(first);
  EXPECT_EQ(first->data, (Bytes{0x90, 60, 100}));
  EXPECT_GE(first->time, before);
  EXPECT_LE(first->time, after);
  EXPECT_GT(before, RawNow());
  EXPECT_EQ(AsMidi(client.ReadMessage()), (MidiMessage{"Keys", 8, -1, {}}));
}

TEST(SimulatedDevice, AlignsItsClockReplyByReply) {
  SimulatedDevice device;
  device.SetClock(std::chrono::nanoseconds(-5'000'000'000));
  TestClient client(device.Port());
  ASSERT_TRUE(device.WaitForStream(1, kLong));
  std::vector<OscMessage> asked;
  std::thread bridge([&] {
    for (int i = 0; i < 3; ++i) {
      asked.push_back(client.ReadMessage());
      client.SendPacket(EncodeTiming(asked.back().address, 1));
    }
  });
  EXPECT_TRUE(device.AlignClockAndWait(2, kLong));
  bridge.join();
  EXPECT_THAT(asked, ElementsAre(Field(&OscMessage::address, "/init_timing"),
                                 Field(&OscMessage::address, "/update_timing"),
                                 Field(&OscMessage::address, "/update_timing")));
  for (const OscMessage& message : asked) {
    EXPECT_EQ(message.typeTags, "h");
    EXPECT_LT(message.Argument<std::int64_t>(0), RawNow() - 4'000'000'000);
  }
}

TEST(SimulatedDevice, SaysWhenNobodyRepliesToItsClock) {
  SimulatedDevice device;
  EXPECT_FALSE(device.AlignClockAndWait(1, kShort));
  TestClient client(device.Port());
  ASSERT_TRUE(device.WaitForStream(1, kLong));
  EXPECT_FALSE(device.AlignClockAndWait(1, kShort));
  const auto start = std::chrono::steady_clock::now();
  client.Finish();
  EXPECT_FALSE(device.AlignClockAndWait(1, 2 * kLong));
  EXPECT_LT(std::chrono::steady_clock::now() - start, kLong) << "the end ends the wait too";
}

TEST(SimulatedDevice, SendsNothingWithoutAStream) {
  SimulatedDevice device;
  EXPECT_FALSE(device.Connected());
  EXPECT_FALSE(device.SendMidi("Keys", 7, {1}));
  EXPECT_EQ(device.Queued(), 0u);
  TestClient client(device.Port());
  ASSERT_TRUE(device.WaitForStream(1, kLong));
  EXPECT_TRUE(device.Connected());
  client.Close();
  ASSERT_TRUE(device.WaitForStreamEnd(1, kLong));
  EXPECT_FALSE(device.Connected());
  EXPECT_FALSE(device.SendRaw({1}));
}

TEST(SimulatedDevice, RecordsFramesAndMessagesAsTheyCame) {
  SimulatedDevice device;
  TestClient client(device.Port());
  const Bytes first = EncodeFrame(EncodeMidi("Keys", 7, 1, {0x90, 1, 2}));
  const Bytes second = EncodeFrame(
      EncodeBundle({EncodeTiming("/init_timing", 5), EncodeTiming("/update_timing", 6)}));
  const std::int64_t before = RawNow();
  ASSERT_TRUE(client.Send(first));
  ASSERT_TRUE(client.Send(second));
  ASSERT_TRUE(device.Record().WaitForMessages(3, kLong));
  const std::int64_t after = RawNow();

  const auto frames = device.Record().Frames();
  ASSERT_EQ(frames.size(), 2u);
  EXPECT_EQ(frames[0].bytes, first);
  EXPECT_EQ(frames[0].offset, 0u);
  EXPECT_EQ(frames[1].bytes, second);
  EXPECT_EQ(frames[1].offset, first.size());
  const auto messages = device.Record().AllMessages();
  ASSERT_EQ(messages.size(), 3u);
  EXPECT_EQ(AsMidi(messages[0].message), (MidiMessage{"Keys", 7, 1, {0x90, 1, 2}}));
  for (const ReceivedMessage& received : messages) {
    EXPECT_EQ(received.stream, 1u);
    EXPECT_GE(received.arrival, before);
    EXPECT_LE(received.arrival, after);
  }
  EXPECT_EQ(device.Record().MessagesTo("/update_timing").size(), 1u);
  const DeviceCounters counters = device.Record().Counters();
  EXPECT_EQ(counters.bytesReceived, first.size() + second.size());
  EXPECT_EQ(counters.framesReceived, 2u);
  EXPECT_EQ(counters.messagesReceived, 3u);
  EXPECT_EQ(counters.violations, 0u);
}

TEST(SimulatedDevice, PutsFramesTogetherThatComeByteByByte) {
  SimulatedDevice device;
  TestClient client(device.Port());
  for (int number = 0; number < 3; ++number) {
    for (const std::uint8_t byte : EncodeFrame(NumberedMidi(number))) {
      ASSERT_TRUE(client.Send({byte}));
    }
  }
  ASSERT_TRUE(device.Record().WaitForMessages(3, kLong));
  EXPECT_THAT(TimesOf(device.Record().AllMessages()), ElementsAre(0, 1, 2));
  EXPECT_EQ(device.Record().Counters().violations, 0u);
}

TEST(SimulatedDevice, RecordCanBeClearedAndWaitedOn) {
  SimulatedDevice device;
  DeviceRecord& record = device.Record();
  TestClient client(device.Port());
  ASSERT_TRUE(client.SendPacket(NumberedMidi(1)));
  ASSERT_TRUE(record.WaitForMessages(1, kLong));
  record.Clear();
  EXPECT_TRUE(record.AllMessages().empty());
  EXPECT_TRUE(record.Frames().empty());
  EXPECT_EQ(record.Counters().messagesReceived, 1u);
  EXPECT_FALSE(record.WaitForMessages(1, kShort));
  ASSERT_TRUE(client.SendPacket(NumberedMidi(2)));
  ASSERT_TRUE(client.SendPacket(NumberedMidi(3)));
  EXPECT_TRUE(record.WaitForMessages(2, kLong));
  const auto hasTime = [&record](std::int64_t time, DeviceRecord::Duration timeout) {
    return record.WaitFor(
        [time](const DeviceRecord::Messages& messages) {
          return std::any_of(messages.begin(), messages.end(), [time](const auto& received) {
            return received.message.template Argument<std::int64_t>(2) == time;
          });
        },
        timeout);
  };
  EXPECT_TRUE(hasTime(3, kLong));
  EXPECT_FALSE(hasTime(1, kShort));
}

TEST(SimulatedDevice, CountsWithoutKeepingWhenAsked) {
  DeviceOptions options;
  options.keepRecord = false;
  SimulatedDevice device(options);
  TestClient client(device.Port());
  ASSERT_TRUE(client.SendPacket(NumberedMidi(1)));
  ASSERT_TRUE(device.Record().WaitForMessages(1, kLong));
  EXPECT_TRUE(device.Record().AllMessages().empty());
  EXPECT_TRUE(device.Record().Frames().empty());
  EXPECT_EQ(device.Record().Counters().framesReceived, 1u);
}

TEST(SimulatedDevice, ACallbackMayAnswer) {
  DeviceOptions options;
  SimulatedDevice* answering = nullptr;
  std::mutex mutex;  // the callback may come before the pointer is set
  options.onMessage = [&](const ReceivedMessage& received) {
    const std::lock_guard lock(mutex);
    answering->SendPacket(EncodeMessage(received.message));
  };
  std::unique_lock lock(mutex);
  SimulatedDevice device(options);
  answering = &device;
  lock.unlock();
  TestClient client(device.Port());
  ASSERT_TRUE(client.SendPacket(NumberedMidi(11)));
  EXPECT_EQ(AsMidi(client.ReadMessage()), AsMidi(DecodePacket(NumberedMidi(11))[0]));
}

TEST(SimulatedDevice, ReportsWhereTheFrameBoundaryBreaks) {
  SimulatedDevice device;
  TestClient client(device.Port());
  const Bytes good = EncodeFrame(NumberedMidi(1));
  ASSERT_TRUE(client.Send(good));
  ASSERT_TRUE(client.Send(EncodeFrame({4, 7, 2}, {1, 2, 3, 4})));
  ASSERT_TRUE(client.Send(good));
  ASSERT_TRUE(device.Record().WaitForCounters(
      [&](const DeviceCounters& counters) {
        return counters.bytesReceived == 2 * good.size() + 16;
      },
      kLong));
  const auto violations = device.Record().Violations();
  ASSERT_EQ(violations.size(), 1u);
  EXPECT_EQ(violations[0].stream, 1u);
  EXPECT_EQ(violations[0].offset, good.size());
  EXPECT_THAT(violations[0].what, HasSubstr("not a frame header: 4, 7, 2"));
  EXPECT_EQ(device.Record().Counters().framesReceived, 1u);

  // The next stream begins with a boundary of its own.
  client.Close();
  TestClient next(device.Port());
  ASSERT_TRUE(next.Send(good));
  ASSERT_TRUE(device.Record().WaitForMessages(2, kLong));
  EXPECT_EQ(device.Record().AllMessages().back().stream, 2u);
  EXPECT_EQ(device.Record().Counters().violations, 1u);
}

TEST(SimulatedDevice, ReportsAStreamThatEndsInsideAFrame) {
  SimulatedDevice device;
  TestClient client(device.Port());
  const Bytes frame = EncodeFrame(NumberedMidi(1));
  ASSERT_TRUE(client.Send(frame));
  ASSERT_TRUE(client.Send(Bytes(frame.begin(), frame.end() - 1)));
  client.Finish();
  ASSERT_TRUE(device.WaitForStreamEnd(1, kLong));
  const auto violations = device.Record().Violations();
  ASSERT_EQ(violations.size(), 1u);
  EXPECT_EQ(violations[0].offset, frame.size());
  EXPECT_THAT(violations[0].what, HasSubstr("ended inside"));
}

TEST(SimulatedDevice, ReportsAPacketThatIsNoOscAndReadsOn) {
  SimulatedDevice device;
  TestClient client(device.Port());
  ASSERT_TRUE(client.SendPacket({'/', 'a', 'b', 'c'}));
  ASSERT_TRUE(client.SendPacket(NumberedMidi(1)));
  ASSERT_TRUE(device.Record().WaitForMessages(1, kLong));
  const auto violations = device.Record().Violations();
  ASSERT_EQ(violations.size(), 1u);
  EXPECT_EQ(violations[0].offset, 0u);
  EXPECT_THAT(violations[0].what, HasSubstr("not an OSC packet"));
}

TEST(SimulatedDevice, SendsAnyHeaderAndAnyBytes) {
  SimulatedDevice device;
  TestClient client(device.Port());
  ASSERT_TRUE(device.WaitForStream(1, kLong));
  EXPECT_TRUE(device.SendFrame({1, 2, 3}, {9}));
  EXPECT_TRUE(device.SendRaw({8, 7}));
  EXPECT_EQ(client.Read(15), (Bytes{0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3, 9, 8, 7}));
}

TEST(SimulatedDevice, SendsTheRubbishOfItsSeed) {
  SimulatedDevice device;
  TestClient client(device.Port());
  ASSERT_TRUE(device.WaitForStream(1, kLong));
  EXPECT_TRUE(device.SendRubbish(42, 100, RubbishKind::kPackets));
  const Bytes expected = MakeRubbish(42, 100, RubbishKind::kPackets);
  EXPECT_EQ(client.Read(expected.size()), expected);
}

TEST(SimulatedDevice, ManyFramesArriveCompleteAndInOrder) {
  constexpr std::int32_t kFrames = 20000;
  SimulatedDevice device;
  TestClient client(device.Port());
  ASSERT_TRUE(device.WaitForStream(1, kLong));
  FrameBatch batch;
  for (std::int32_t i = 0; i < kFrames; ++i) batch.AddPacket(NumberedMidi(i));
  ASSERT_TRUE(device.SendBatch(batch));
  EXPECT_EQ(client.Read(batch.Data().size()), batch.Data());
  EXPECT_TRUE(device.WaitUntilSent(kLong));
  EXPECT_EQ(device.Record().Counters().framesSent, std::uint64_t{kFrames});
  EXPECT_EQ(device.Record().Counters().bytesSent, batch.Data().size());
}

TEST(SimulatedDevice, FramesOfSeveralThreadsDoNotMix) {
  constexpr std::int32_t kThreads = 4;
  constexpr std::int32_t kFrames = 500;
  SimulatedDevice device;
  TestClient client(device.Port());
  ASSERT_TRUE(device.WaitForStream(1, kLong));
  std::vector<std::thread> threads;
  for (std::int32_t id = 0; id < kThreads; ++id) {
    threads.emplace_back([&device, id] {
      for (std::int32_t i = 0; i < kFrames; ++i) device.SendMidi("Keys", id, i, Bytes(200, 1));
    });
  }
  std::map<std::int32_t, std::int64_t> next;
  for (std::int32_t i = 0; i < kThreads * kFrames; ++i) {
    const auto midi = AsMidi(client.ReadMessage());
    ASSERT_TRUE(midi);
    EXPECT_EQ(midi->time, next[midi->id]++);
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(next.size(), std::size_t{kThreads});
}

TEST(SimulatedDevice, TakesTheGivenPortOrSaysWhyNot) {
  SimulatedDevice device;
  DeviceOptions same;
  same.port = device.Port();
  EXPECT_THROW(SimulatedDevice{same}, std::system_error);
}

TEST(SimulatedDevice, ACallbackThatFailsIsNotHidden) {
  DeviceOptions options;
  options.onMessage = [](const ReceivedMessage&) { throw std::runtime_error("no more paper"); };
  SimulatedDevice device(options);
  TestClient client(device.Port());
  ASSERT_TRUE(client.SendPacket(NumberedMidi(1)));
  ASSERT_TRUE(device.WaitForStreamEnd(1, kLong));
  EXPECT_EQ(device.Failure(), "no more paper");
  EXPECT_FALSE(device.SendRaw({1}));
}

TEST(SimulatedDevice, NoticesTellItsStory) {
  std::vector<std::string> notices;
  {
    DeviceOptions options;
    options.onNotice = [&notices](const std::string& line) { notices.push_back(line); };
    SimulatedDevice device(options);
    TestClient client(device.Port());
    ASSERT_TRUE(client.Send(EncodeFrame({0, 2, 2}, {})));
    client.Finish();
    ASSERT_TRUE(device.WaitForStreamEnd(1, kLong));
  }
  EXPECT_THAT(notices, ElementsAre("stream 1 open",
                                   "violation at byte 0 of stream 1: not a frame header: 0, 2, 2",
                                   "stream 1 closed: ended by the peer"));
}

}  // namespace
}  // namespace corvalint::device
