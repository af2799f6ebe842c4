// The command line of corvalint-device, and the program running.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>

#include "device/options.h"
#include "device/program.h"
#include "device/simulated_device.h"
#include "device_test_client.h"
#include "harness/temp_folder.h"

namespace corvalint::device {
namespace {

using ::testing::HasSubstr;

std::string Mistake(const std::vector<std::string>& arguments) {
  try {
    ParseOptions(arguments);
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  return "";
}

// As a shell splits them; no word has a blank in it.
std::vector<std::string> Words(const std::string& line) {
  std::istringstream text(line);
  return {std::istream_iterator<std::string>(text), {}};
}

TEST(DeviceOptionsText, NamesFilesAndEndpointsAreRead) {
  const ProgramOptions options =
      ParseOptions({"--port", "0", "--name", "My iPad", "--udid", "abc", "--source",
                    "Keys: left:-7", "--source", "Pad:8", "--destination", "Synth:9", "--play",
                    "a.mid", "--id", "8", "--record", "out.json"});
  EXPECT_EQ(options.port, 0);
  EXPECT_EQ(options.name, "My iPad");
  EXPECT_EQ(options.udid, "abc");
  ASSERT_EQ(options.sources.size(), 2u);
  EXPECT_EQ(options.sources[0].name, "Keys: left");
  EXPECT_EQ(options.sources[0].id, -7);
  EXPECT_EQ(options.sources[1].id, 8);
  ASSERT_EQ(options.destinations.size(), 1u);
  EXPECT_EQ(options.destinations[0].name, "Synth");
  EXPECT_EQ(options.songFile, "a.mid");
  EXPECT_EQ(options.songId, 8);
  EXPECT_EQ(options.recordFile, "out.json");
}

TEST(DeviceOptionsText, NumbersAndMannersAreRead) {
  const ProgramOptions options = ParseOptions(
      Words("--play a.mid --id 8 --seconds 2.5 --fast --clock -20 --slow 100 --pieces 3 "
            "--stall-after 4 --cut-after 500 --cut-how end --rubbish 77 --once -v"));
  EXPECT_EQ(options.seconds, 2.5);
  EXPECT_TRUE(options.fast);
  EXPECT_EQ(options.clockMilliseconds, -20);
  EXPECT_EQ(options.slow, 100u);
  EXPECT_EQ(options.pieces, 3u);
  EXPECT_EQ(options.stallAfter, 4u);
  EXPECT_EQ(options.cutAfter, 500u);
  EXPECT_EQ(options.cutHow, CutHow::kFinish);
  EXPECT_EQ(options.rubbishSeed, 77u);
  EXPECT_TRUE(options.once);
  EXPECT_TRUE(options.verbose);
  EXPECT_FALSE(options.help);
}

TEST(DeviceOptionsText, TheCompanionAppsPortIsTheDefault) {
  EXPECT_EQ(ParseOptions({}).port, 23451);
}

TEST(DeviceOptionsText, MistakesAreNamed) {
  EXPECT_THAT(Mistake({"--prot", "1"}), HasSubstr("unknown option --prot"));
  EXPECT_THAT(Mistake({"--port"}), HasSubstr("--port needs a value"));
  EXPECT_THAT(Mistake({"--port", "70000"}), HasSubstr("--port: \"70000\""));
  EXPECT_THAT(Mistake({"--port", "12x"}), HasSubstr("--port: \"12x\""));
  EXPECT_THAT(Mistake({"--source", "Keys"}), HasSubstr("NAME:ID"));
  EXPECT_THAT(Mistake({"--source", ":7"}), HasSubstr("NAME:ID"));
  EXPECT_THAT(Mistake({"--destination", "Keys:seven"}), HasSubstr("--destination: \"seven\""));
  EXPECT_THAT(Mistake({"--cut-how", "softly"}), HasSubstr("softly"));
  EXPECT_THAT(Mistake({"--play", "a.mid"}), HasSubstr("--play needs --id"));
  EXPECT_THAT(Mistake({"--fast"}), HasSubstr("belong to --play"));
  EXPECT_THAT(Mistake({"--play", "a.mid", "--id", "1", "--seconds", "0"}), HasSubstr("above 0"));
}

TEST(DeviceOptionsText, HelpNamesEveryOption) {
  std::ostringstream usage;
  PrintUsage(usage);
  for (const char* option :
       {"--port",    "--name",   "--udid",        "--source",    "--destination",
        "--clock",   "--play",   "--id",          "--seconds",   "--fast",
        "--slow",    "--pieces", "--stall-after", "--cut-after", "--cut-how",
        "--rubbish", "--record", "--once",        "--verbose",   "--help"}) {
    EXPECT_THAT(usage.str(), HasSubstr(std::string(" ") + option)) << option;
  }
  EXPECT_TRUE(ParseOptions({"--play", "x", "--help"}).help);
}

std::uint16_t FreePort() { return SimulatedDevice().Port(); }

// Connects as soon as the program listens.
std::unique_ptr<TestClient> ConnectTo(std::uint16_t port) {
  const auto end = std::chrono::steady_clock::now() + kLong;
  for (;;) {
    auto client = std::make_unique<TestClient>(port);
    if (client->ConnectError() == 0 || std::chrono::steady_clock::now() > end) return client;
    std::this_thread::yield();
  }
}

TEST(DeviceProgram, AnnouncesAlignsPlaysAndRecords) {
  const harness::TempFolder folder;
  const std::filesystem::path songFile = folder.Path() / "song.mid";
  const std::filesystem::path recordFile = folder.Path() / "record.json";
  const std::string song(
      "MThd\0\0\0\6\0\0\0\1\0\x60MTrk\0\0\0\xc\0\x90\x3c\x64\x60\x3c\0\0\xff\x2f\0", 33);
  std::ofstream(songFile, std::ios::binary) << song;

  ProgramOptions options;
  options.port = FreePort();
  options.sources = {{"Keys", 7}};
  options.songFile = songFile.string();
  options.fast = true;
  options.recordFile = recordFile.string();
  options.once = true;
  ::testing::internal::CaptureStdout();
  int status = -1;
  std::thread program([&] { status = RunProgram(options); });
  {
    const auto client = ConnectTo(options.port);
    EXPECT_EQ(client->ReadMessage().address, "/add_remote_source");
    for (const char* address :
         {"/init_timing", "/update_timing", "/update_timing", "/update_timing"}) {
      EXPECT_EQ(client->ReadMessage().address, address);
      EXPECT_TRUE(client->SendPacket(EncodeTiming(address, 5)));
    }
    for (const Bytes& expected : {Bytes{0x90, 0x3c, 0x64}, Bytes{0x90, 0x3c, 0x00}}) {
      const auto midi = AsMidi(client->ReadMessage());
      ASSERT_TRUE(midi);
      EXPECT_EQ(midi->name, "Keys");
      EXPECT_EQ(midi->id, 7);
      EXPECT_EQ(midi->data, expected);
    }
    program.join();
  }
  const std::string output = ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(status, 0);
  EXPECT_THAT(output, HasSubstr("announced source Keys (7)\n"));
  EXPECT_THAT(output, HasSubstr("clock aligned\n"));
  EXPECT_THAT(output, HasSubstr("played 2 events\n"));
  std::ifstream record(recordFile);
  std::string line;
  int lines = 0;
  while (std::getline(record, line)) {
    ++lines;
    EXPECT_THAT(line, HasSubstr("_timing\",\"tags\":\"h\",\"arguments\":[5]}"));
  }
  EXPECT_EQ(lines, 4);
}

TEST(DeviceProgram, ItsStatusTellsOfAViolation) {
  ProgramOptions options;
  options.port = FreePort();
  options.once = true;
  ::testing::internal::CaptureStdout();
  int status = -1;
  std::thread program([&] { status = RunProgram(options); });
  {
    const auto client = ConnectTo(options.port);
    EXPECT_TRUE(client->Send(EncodeFrame({0, 0, 0}, {})));
    client->Finish();
    client->ReadToEnd();
  }
  program.join();
  EXPECT_THAT(::testing::internal::GetCapturedStdout(), HasSubstr("violations 1\n"));
  EXPECT_EQ(status, 1);
}

TEST(DeviceProgram, FilesThatCannotBeUsedAreErrors) {
  ProgramOptions options;
  options.port = 0;
  options.recordFile = "/nowhere/at/all";
  EXPECT_THROW(RunProgram(options), std::runtime_error);
  options.recordFile.reset();
  options.songFile = "/nowhere/at/all.mid";
  EXPECT_THROW(RunProgram(options), std::runtime_error);
}

}  // namespace
}  // namespace corvalint::device
