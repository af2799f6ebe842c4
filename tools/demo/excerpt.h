#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <vector>

#include "device/song.h"

namespace corvalint::demo {

// Where the bars of a MIDI file begin, in microseconds, by its tempo map and time signatures: the
// first bar's beginning (0) up to the first one after the last event. Throws std::runtime_error if
// the file cannot be read or has no bars because its times are not musical ones.
std::vector<std::int64_t> ReadBars(const std::filesystem::path& path);

// `count` bars of the song from the one in which the first note sounds. What the song sends before
// comes at time 0, so that the instruments are set up. Notes that would sound on are ended at the
// end of the last bar, as a musician would.
device::Song FirstBars(const device::Song& song, const std::vector<std::int64_t>& bars,
                       std::size_t count);

}  // namespace corvalint::demo
