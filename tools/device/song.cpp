#include "device/song.h"

#include <glib.h>
#include <smf.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string_view>

namespace corvalint::device {
namespace {

constexpr const char* kSongFolder = "/usr/share/games/openttd/baseset/openmsx";

// The library reports problems only through its log, so what it logs while a file is loaded is
// collected here. Guarded by `readMutex`.
std::mutex readMutex;

void CollectLog(const gchar* /*domain*/, GLogLevelFlags level, const gchar* message,
                gpointer collected) {
  if ((level & (G_LOG_LEVEL_ERROR | G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_WARNING)) == 0) return;
  auto& text = *static_cast<std::string*>(collected);
  if (!text.empty()) text += "; ";
  text += message;
}

class LogCollector {
 public:
  LogCollector()
      : handler(g_log_set_handler(
            "libsmf", static_cast<GLogLevelFlags>(G_LOG_LEVEL_MASK | G_LOG_FLAG_RECURSION),
            &CollectLog, &text)) {}
  ~LogCollector() { g_log_remove_handler("libsmf", handler); }
  LogCollector(const LogCollector&) = delete;
  LogCollector& operator=(const LogCollector&) = delete;

  const std::string& Text() const { return text; }

 private:
  std::string text;
  guint handler;
};

// Whether the file begins like a MIDI file. The library forgets to free what it has begun when it
// finds this out itself.
bool StartsAsMidiFile(std::istream& file) {
  char start[8] = {};
  return file.read(start, sizeof start) &&
         std::string_view(start, 8) == std::string_view("MThd\0\0\0\6", 8);
}

// Whether the event is sent to an instrument: everything but meta events and real-time messages.
bool IsPlayed(const smf_event_t& event) {
  if (event.midi_buffer_length < 1) return false;
  const std::uint8_t status = event.midi_buffer[0];
  return status >= 0x80 && status <= 0xF0;
}

}  // namespace

Song ReadSong(const std::filesystem::path& path) {
  const auto fail = [&path](const std::string& why) {
    throw std::runtime_error(path.string() + ": " + why);
  };
  std::ifstream start(path, std::ios::binary);
  if (!start) fail("cannot be opened");
  if (!StartsAsMidiFile(start)) fail("is not a MIDI file");
  const std::lock_guard lock(readMutex);
  const LogCollector log;
  const std::unique_ptr<smf_t, void (*)(smf_t*)> file(smf_load(path.c_str()), &smf_delete);
  if (!file) fail(log.Text().empty() ? "is a damaged MIDI file" : log.Text());

  Song song;
  song.title = path.stem().string();
  while (const smf_event_t* event = smf_get_next_event(file.get())) {
    if (!IsPlayed(*event)) continue;
    const auto time = static_cast<std::int64_t>(std::llround(event->time_seconds * 1e6));
    song.events.push_back(
        {time, Bytes(event->midi_buffer, event->midi_buffer + event->midi_buffer_length)});
  }
  return song;
}

std::vector<std::filesystem::path> FindSongs() {
  std::vector<std::filesystem::path> songs;
  std::error_code missing;
  for (const auto& entry : std::filesystem::directory_iterator(kSongFolder, missing)) {
    if (entry.path().extension() == ".mid") songs.push_back(entry.path());
  }
  std::sort(songs.begin(), songs.end());
  return songs;
}

}  // namespace corvalint::device
