#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "demo/progress.h"
#include "demo/table.h"
#include "demo/ways.h"
#include "device/song.h"

namespace corvalint::demo {

// A song as it is played on each way.
struct Piece {
  device::Song song;               // as fast as it goes
  device::Song excerpt;            // at its own tempo; without events it is left out
  std::size_t rounds = 1;          // how often the song is played as fast as it goes; 0: not at all
  std::string pace = "own tempo";  // of the excerpt, as the table names it
};

// Plays a piece on a way, shows how it goes, and adds what arrived to the row of each receiver and
// pace. Rows that are not there are added. Throws as the way does.
void Perform(Way& way, const Piece& piece, Progress& progress, std::vector<Row>& rows);

}  // namespace corvalint::demo
