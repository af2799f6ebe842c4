#include "demo/excerpt.h"

#include <glib.h>
#include <smf.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <map>
#include <memory>
#include <stdexcept>
#include <utility>

namespace corvalint::demo {

namespace {

bool BeginsNote(const device::SongEvent& event) {
  return event.bytes.size() == 3 && (event.bytes[0] & 0xF0) == 0x90 && event.bytes[2] != 0;
}

bool EndsNote(const device::SongEvent& event) {
  if (event.bytes.size() != 3) return false;
  const int kind = event.bytes[0] & 0xF0;
  return kind == 0x80 || (kind == 0x90 && event.bytes[2] == 0);
}

// Adds the ends of all notes that have begun more often than ended.
void EndSoundingNotes(device::Song& song, std::int64_t time) {
  std::map<std::pair<int, int>, int> sounding;  // by channel and key
  for (const device::SongEvent& event : song.events) {
    const auto note = [&event] { return std::pair(event.bytes[0] & 0x0F, int{event.bytes[1]}); };
    if (BeginsNote(event)) ++sounding[note()];
    if (EndsNote(event) && sounding[note()] > 0) --sounding[note()];
  }
  for (const auto& [note, times] : sounding) {
    const device::Bytes end = {static_cast<std::uint8_t>(0x80 | note.first),
                               static_cast<std::uint8_t>(note.second), 0x40};
    for (int i = 0; i < times; ++i) song.events.push_back({time, end});
  }
}

}  // namespace

std::vector<std::int64_t> ReadBars(const std::filesystem::path& path) {
  // What there is to complain about has been said when the song's events were read.
  const guint silencer = g_log_set_handler(
      "libsmf", static_cast<GLogLevelFlags>(G_LOG_LEVEL_MASK),
      [](const gchar*, GLogLevelFlags, const gchar*, gpointer) {}, nullptr);
  const std::unique_ptr<smf_t, void (*)(smf_t*)> file(smf_load(path.c_str()), &smf_delete);
  g_log_remove_handler("libsmf", silencer);
  if (!file) throw std::runtime_error(path.string() + ": cannot be read");
  if (file->ppqn <= 0) throw std::runtime_error(path.string() + ": has no bars");
  const double quarter = file->ppqn;
  const double end = smf_get_length_pulses(file.get());
  std::vector<std::int64_t> bars;
  for (double pulse = 0;;) {
    // The library gives what holds before a pulse, and a change on the bar line holds from there
    // on.
    const smf_tempo_t* tempo = smf_get_tempo_by_pulses(file.get(), static_cast<int>(pulse) + 1);
    const double inTempo = (pulse - tempo->time_pulses) / quarter;  // quarter notes
    bars.push_back(
        std::llround(tempo->time_seconds * 1e6 + inTempo * tempo->microseconds_per_quarter_note));
    if (pulse > end) return bars;
    pulse += std::max(1.0, quarter * 4 * tempo->numerator / std::max(1, tempo->denominator));
  }
}

device::Song FirstBars(const device::Song& song, const std::vector<std::int64_t>& bars,
                       std::size_t count) {
  device::Song excerpt{song.title, {}};
  const auto note = std::find_if(song.events.begin(), song.events.end(), BeginsNote);
  if (note == song.events.end() || bars.empty()) return excerpt;
  auto first = std::upper_bound(bars.begin(), bars.end(), note->time);
  if (first != bars.begin()) --first;
  const auto barsLeft = static_cast<std::size_t>(std::distance(first, bars.end())) - 1;
  const std::int64_t start = *first;
  const std::int64_t end =
      *std::next(first, static_cast<std::ptrdiff_t>(std::min(count, barsLeft)));
  for (const device::SongEvent& event : song.events) {
    if (event.time >= end) break;
    excerpt.events.push_back({std::max<std::int64_t>(event.time - start, 0), event.bytes});
  }
  EndSoundingNotes(excerpt, end - start);
  return excerpt;
}

}  // namespace corvalint::demo
