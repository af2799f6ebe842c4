#include "demo/performance.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>

#include "demo/waiting.h"
#include "device/player.h"

namespace corvalint::demo {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kFullSpeed = "full speed";

Row& RowOf(std::vector<Row>& rows, const std::string& way, const std::string& pace) {
  for (Row& row : rows) {
    if (row.way == way && row.pace == pace) return row;
  }
  rows.emplace_back();
  rows.back().way = way;
  rows.back().pace = pace;
  return rows.back();
}

std::size_t ReceivedByAll(Way& way) {
  std::size_t count = 0;
  for (std::size_t i = 0; i < way.Receivers().size(); ++i) count += way.ReceivedCount(i);
  return count;
}

// Until all has arrived, or so long nothing that no more will.
void AwaitArrival(Way& way, std::size_t expected, const std::function<void()>& tick) {
  constexpr std::chrono::milliseconds kBetweenLooks{20};
  constexpr std::chrono::seconds kSilence{3};
  std::size_t received = ReceivedByAll(way);
  for (auto last = Clock::now(); received < expected && Clock::now() - last < kSilence;) {
    CheckInterrupted();
    std::this_thread::sleep_for(kBetweenLooks);
    tick();
    const std::size_t now = ReceivedByAll(way);
    if (now != received) last = Clock::now();
    received = now;
  }
  way.Settle();
}

// "1,020 messages in 6.2 s (165 a second), all arrived".
std::string Result(std::size_t sent, double seconds, bool perfect) {
  char text[64];
  std::snprintf(text, sizeof(text), " messages in %.2f s, ", seconds);
  return Grouped(sent) + text + (perfect ? "all arrived" : "NOT all arrived as sent");
}

// One pace on one way; `play` sends.
void PerformAt(const std::string& pace, Way& way, std::size_t count, Progress& progress,
               std::vector<Row>& rows,
               const std::function<void(const std::function<void()>& tick)>& play) {
  const std::vector<std::string> receivers = way.Receivers();
  const std::size_t expected = count * receivers.size();
  const auto tick = [&] {
    CheckInterrupted();
    if (progress.Due()) progress.Update(way.SentCount(), ReceivedByAll(way));
  };
  way.Clear();
  std::string label = "  " + pace;
  label.resize(std::max<std::size_t>(label.size() + 1, 14), ' ');
  progress.Begin(label, expected);
  const auto start = Clock::now();
  play(tick);
  AwaitArrival(way, expected, tick);
  const std::chrono::duration<double> passed = Clock::now() - start;
  const std::vector<harness::Recorded> sent = way.Sent();
  std::string differences;
  for (std::size_t i = 0; i < receivers.size(); ++i) {
    Row& row = RowOf(rows, receivers[i], pace);
    const std::string first = row.Add(sent, way.Received(i));
    if (!way.KnowsTimes()) row.times.clear();
    if (!first.empty()) differences += "\n    " + receivers[i] + ", " + first;
  }
  progress.End(Result(sent.size(), passed.count(), differences.empty()) + differences);
}

}  // namespace

void Perform(Way& way, const Piece& piece, Progress& progress, std::vector<Row>& rows) {
  if (!piece.excerpt.events.empty()) {
    PerformAt(piece.pace, way, piece.excerpt.events.size(), progress, rows, [&](const auto& tick) {
      device::Player player;
      player.Play(piece.excerpt, {}, [&](const device::SongEvent& event, std::size_t) {
        way.Send(event.bytes);
        tick();
        return true;
      });
    });
  }
  if (piece.rounds == 0) return;
  PerformAt(kFullSpeed, way, piece.rounds * piece.song.events.size(), progress, rows,
            [&](const auto& tick) { way.SendAll(piece.song, piece.rounds, tick); });
}

}  // namespace corvalint::demo
