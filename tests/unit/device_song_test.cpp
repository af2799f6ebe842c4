// Standard MIDI Files and their playing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <smf.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>

#include "device/player.h"
#include "device/song.h"
#include "device_test_client.h"
#include "harness/temp_folder.h"

namespace corvalint::device {
namespace {

using ::testing::HasSubstr;
using Clock = std::chrono::steady_clock;

class SongFiles : public ::testing::Test {
 protected:
  std::filesystem::path Write(const std::string& name, const std::string& content) {
    const std::filesystem::path path = folder / name;
    std::ofstream(path, std::ios::binary) << content;
    return path;
  }

  const harness::TempFolder temp;
  const std::filesystem::path folder = temp.Path();
};

std::string Chunk(const std::string& type, const std::string& content) {
  const auto size = static_cast<char>(content.size());
  return type + std::string{0, 0, 0, size} + content;
}

// 96 ticks per quarter note; a format 1 file of the given tracks.
std::string MidiFile(const std::vector<std::string>& tracks) {
  std::string file = Chunk("MThd", std::string{0, 1, 0, static_cast<char>(tracks.size()), 0, 96});
  for (const std::string& track : tracks) {
    file += Chunk("MTrk", track + std::string("\x00\xff\x2f\x00", 4));
  }
  return file;
}

TEST_F(SongFiles, TracksAreMergedAtTheirTempo) {
  // A quarter note lasts 500 ms, and 250 ms from the first beat on.
  const std::string conductor(
      "\x00\xff\x03\x01X"
      "\x00\xff\x51\x03\x07\xa1\x20"
      "\x60\xff\x51\x03\x03\xd0\x90",
      19);
  // A note, its end as running status a beat later, and a system exclusive message at once.
  const std::string piano(
      "\x00\x90\x3c\x64"
      "\x60\x3c\x00"
      "\x00\xf0\x05\x7e\x7f\x09\x01\xf7",
      15);
  // A program change on the half beat, and a controller two beats after that.
  const std::string bass("\x30\xc1\x20\x81\x40\xb1\x07\x7f", 8);

  const Song song = ReadSong(Write("two tracks.mid", MidiFile({conductor, piano, bass})));

  EXPECT_EQ(song.title, "two tracks");
  const std::vector<SongEvent> expected{{0, {0x90, 0x3c, 0x64}},
                                        {250'000, {0xc1, 0x20}},
                                        {500'000, {0x90, 0x3c, 0x00}},
                                        {500'000, {0xf0, 0x7e, 0x7f, 0x09, 0x01, 0xf7}},
                                        {875'000, {0xb1, 0x07, 0x7f}}};
  EXPECT_EQ(song.events, expected);
  EXPECT_EQ(song.Length(), 875'000);
}

TEST_F(SongFiles, EveryEventOfALongFileIsRead) {
  constexpr int kTracks = 5;
  constexpr int kNotes = 700;
  const std::filesystem::path path = folder / "long.mid";
  smf_t* file = smf_new();
  ASSERT_EQ(smf_set_ppqn(file, 480), 0);
  for (int t = 0; t < kTracks; ++t) {
    smf_track_t* track = smf_track_new();
    smf_add_track(file, track);
    for (int i = 0; i < kNotes; ++i) {
      smf_track_add_event_pulses(track, smf_event_new_from_bytes(0x90 + t, i % 128, 1 + i % 100),
                                 i * 7);
    }
  }
  ASSERT_EQ(smf_save(file, path.c_str()), 0);
  smf_delete(file);

  const Song song = ReadSong(path);

  ASSERT_EQ(song.events.size(), std::size_t{kTracks * kNotes});
  std::vector<int> next(kTracks, 0);
  for (const SongEvent& event : song.events) {
    ASSERT_EQ(event.bytes.size(), 3u);
    const std::size_t track = event.bytes[0] - 0x90u;
    ASSERT_LT(track, next.size());
    const int i = next[track]++;
    EXPECT_EQ(event.bytes[1], i % 128);
    EXPECT_EQ(event.bytes[2], 1 + i % 100);
    // 480 pulses are 500 ms as long as a file names no tempo.
    EXPECT_NEAR(static_cast<double>(event.time), i * 7 * 500'000.0 / 480, 1.0);
  }
}

TEST_F(SongFiles, WhatIsNoMidiFileIsNamed) {
  const auto why = [](const std::filesystem::path& path) -> std::string {
    try {
      ReadSong(path);
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "no error";
  };
  EXPECT_THAT(why(folder / "absent.mid"), HasSubstr("absent.mid: cannot be opened"));
  EXPECT_THAT(why(Write("text.mid", "Dear reader, this is prose.")),
              HasSubstr("text.mid: is not a MIDI file"));
  EXPECT_THAT(why(Write("empty.mid", "")), HasSubstr("empty.mid: is not a MIDI file"));
}

TEST(FindSongs, EverySongOfTheCollectionReadsInTimeOrder) {
  const auto paths = FindSongs();
  ASSERT_GE(paths.size(), 5u) << "the package openttd-openmsx is not installed";
  EXPECT_TRUE(std::is_sorted(paths.begin(), paths.end()));
  for (const std::filesystem::path& path : paths) {
    const Song song = ReadSong(path);
    EXPECT_GT(song.events.size(), 100u) << path;
    std::int64_t last = 0;
    for (const SongEvent& event : song.events) {
      ASSERT_GE(event.time, last) << path;
      last = event.time;
      ASSERT_FALSE(event.bytes.empty()) << path;
      ASSERT_GE(event.bytes[0], 0x80) << path;
      ASSERT_LE(event.bytes[0], 0xF0) << path;
    }
  }
}

Song Notes(const std::vector<std::int64_t>& times) {
  Song song;
  for (const std::int64_t time : times) {
    song.events.push_back({time, {0x90, static_cast<std::uint8_t>(song.events.size()), 1}});
  }
  return song;
}

TEST(Player, FastPlaysEverythingInOrderAtOnce) {
  const Song song = Notes({0, 3'600'000'000, 7'200'000'000});
  std::vector<std::size_t> indices;
  Player player;
  PlayOptions fast;
  fast.fast = true;
  EXPECT_EQ(player.Play(song, fast,
                        [&](const SongEvent& event, std::size_t index) {
                          EXPECT_EQ(event, song.events[index]);
                          indices.push_back(index);
                          return true;
                        }),
            3u);
  EXPECT_EQ(indices, (std::vector<std::size_t>{0, 1, 2}));
}

TEST(Player, IsNeverEarlyAtTheSongsTempo) {
  const Song song = Notes({0, 10'000, 10'000, 30'000});
  Player player;
  const auto start = Clock::now();
  const std::size_t played = player.Play(song, {}, [&](const SongEvent& event, std::size_t) {
    EXPECT_GE(Clock::now() - start, std::chrono::microseconds(event.time));
    return true;
  });
  EXPECT_EQ(played, 4u);
}

TEST(Player, PlaysOnlyTheFirstSeconds) {
  const Song song = Notes({0, 20'000, 20'001, 60'000'000});
  PlayOptions options;
  options.seconds = 0.02;
  for (const bool fast : {false, true}) {
    options.fast = fast;
    Player player;
    EXPECT_EQ(player.Play(song, options, [](const SongEvent&, std::size_t) { return true; }), 2u);
  }
}

TEST(Player, EndsWhenTheCallbackWantsIt) {
  Player player;
  EXPECT_EQ(player.Play(Notes({0, 0, 0}), {},
                        [](const SongEvent&, std::size_t index) { return index < 1; }),
            2u);
}

TEST(Player, StopEndsALongRest) {
  const Song song = Notes({0, 3'600'000'000});
  Player player;
  std::thread stopper;
  const auto start = Clock::now();
  EXPECT_EQ(player.Play(song, {},
                        [&](const SongEvent&, std::size_t) {
                          stopper = std::thread([&] { player.Stop(); });
                          return true;
                        }),
            1u);
  stopper.join();
  EXPECT_LT(Clock::now() - start, kLong);
}

}  // namespace
}  // namespace corvalint::device
