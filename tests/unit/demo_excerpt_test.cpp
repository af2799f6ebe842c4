// The few bars that the demo plays at the music's own tempo.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "demo/excerpt.h"

namespace corvalint::demo {
namespace {

using device::Song;
using device::SongEvent;
using testing::ElementsAre;
using testing::IsEmpty;

const device::Bytes kProgram{0xC0, 0x05};
const device::Bytes kOn{0x90, 0x3C, 0x64};
const device::Bytes kOff{0x80, 0x3C, 0x40};

TEST(DemoExcerpt, EndsBeforeTheNextBar) {
  const Song song{"t", {{0, kOn}, {500, kOff}, {1999, kOn}, {1999, kOff}, {2000, kOn}}};
  const Song excerpt = FirstBars(song, {0, 1000, 2000, 3000}, 2);
  EXPECT_EQ(excerpt.title, "t");
  EXPECT_THAT(excerpt.events, ElementsAre(SongEvent{0, kOn}, SongEvent{500, kOff},
                                          SongEvent{1999, kOn}, SongEvent{1999, kOff}));
}

TEST(DemoExcerpt, SkipsSilentBarsButKeepsWhatSetsUp) {
  const Song song{"", {{10, kProgram}, {2300, kOn}, {2400, kOff}, {3500, kOn}}};
  EXPECT_THAT(FirstBars(song, {0, 1000, 2000, 3000, 4000}, 1).events,
              ElementsAre(SongEvent{0, kProgram}, SongEvent{300, kOn}, SongEvent{400, kOff}));
}

TEST(DemoExcerpt, ANoteOnABarLineBelongsToTheBarThatBeginsThere) {
  const Song song{"", {{1000, kOn}, {1500, kOff}, {2000, kOn}}};
  EXPECT_THAT(FirstBars(song, {0, 1000, 2000, 3000}, 1).events,
              ElementsAre(SongEvent{0, kOn}, SongEvent{500, kOff}));
}

TEST(DemoExcerpt, EndsEveryNoteThatStillSounds) {
  const device::Bytes other{0x93, 0x40, 0x10};
  const device::Bytes softOff{0x93, 0x40, 0};  // a note on without strength ends a note too
  const Song song{"", {{0, kOn}, {1, kOn}, {2, other}, {3, softOff}, {4, kOff}, {5, other}}};
  EXPECT_THAT(FirstBars(song, {0, 100, 200}, 1).events,
              ElementsAre(SongEvent{0, kOn}, SongEvent{1, kOn}, SongEvent{2, other},
                          SongEvent{3, softOff}, SongEvent{4, kOff}, SongEvent{5, other},
                          SongEvent{100, kOff}, SongEvent{100, {0x83, 0x40, 0x40}}));
}

TEST(DemoExcerpt, MoreBarsThanThereAreGiveTheWholeSong) {
  const Song song{"", {{0, kOn}, {1500, kOff}}};
  EXPECT_EQ(FirstBars(song, {0, 1000, 2000}, 50).events, song.events);
}

TEST(DemoExcerpt, NothingComesOfASongWithoutNotesOrOfNoBars) {
  EXPECT_THAT(FirstBars({"", {{0, kProgram}}}, {0, 1000}, 3).events, IsEmpty());
  EXPECT_THAT(FirstBars({"", {{0, kOn}, {5, kOff}}}, {0, 1000}, 0).events, IsEmpty());
  EXPECT_THAT(FirstBars({"", {{0, kOn}}}, {}, 3).events, IsEmpty());
}

// A MIDI file of one track that is there as long as the object.
class MidiFile {
 public:
  MidiFile(std::uint16_t division, const std::string& track)
      : path(std::filesystem::temp_directory_path() /
             ("demo-excerpt-" + std::to_string(getpid()) + ".mid")) {
    std::string bytes("MThd\0\0\0\6\0\0\0\1", 12);
    bytes += {static_cast<char>(division >> 8), static_cast<char>(division & 0xFF)};
    bytes += std::string("MTrk\0\0\0", 7) + static_cast<char>(track.size()) + track;
    std::ofstream(path, std::ios::binary) << bytes;
  }
  ~MidiFile() { std::filesystem::remove(path); }
  MidiFile(const MidiFile&) = delete;
  MidiFile& operator=(const MidiFile&) = delete;

  const std::filesystem::path path;
};

template <std::size_t size>
std::string Raw(const char (&text)[size]) {
  return std::string(text, size - 1);
}

TEST(DemoExcerpt, BarsFollowTempoAndTimeSignature) {
  // 96 pulses a quarter note, 0.5 s each, in 3/4; from the third bar on 1 s each, in 2/4.
  const MidiFile file(96, Raw("\x00\xFF\x51\x03\x07\xA1\x20"
                              "\x00\xFF\x58\x04\x03\x02\x18\x08"
                              "\x00\x90\x3C\x64"
                              "\x84\x40\xFF\x51\x03\x0F\x42\x40"
                              "\x00\xFF\x58\x04\x02\x02\x18\x08"
                              "\x60\x80\x3C\x40"
                              "\x00\xFF\x2F\x00"));
  EXPECT_THAT(ReadBars(file.path), ElementsAre(0, 1'500'000, 3'000'000, 5'000'000));
}

TEST(DemoExcerpt, BarsOfAMissingFileAreAnError) {
  EXPECT_THROW(ReadBars("/nowhere/song.mid"), std::runtime_error);
}

}  // namespace
}  // namespace corvalint::demo
