#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "device/osc_codec.h"

// Music from Standard MIDI Files. Throws std::runtime_error where a file cannot be read.
namespace corvalint::device {

struct SongEvent {
  std::int64_t time = 0;  // microseconds since the start of the song
  Bytes bytes;            // one channel message, or one system exclusive message F0 ... F7

  friend bool operator==(const SongEvent&, const SongEvent&) = default;
};

struct Song {
  std::string title;              // the file's name without its ending
  std::vector<SongEvent> events;  // of all tracks, in time order

  // Time of the last event, microseconds; 0 for a song without events.
  std::int64_t Length() const { return events.empty() ? 0 : events.back().time; }
};

// Channel and system exclusive messages of all tracks merged, at the times that the tempo map
// gives. Other meta events are left out. One call at a time per process is read; others wait.
Song ReadSong(const std::filesystem::path& path);

// The .mid files of the OpenMSX collection (package openttd-openmsx) in alphabetical order, or none
// when it is not installed.
std::vector<std::filesystem::path> FindSongs();

}  // namespace corvalint::device
