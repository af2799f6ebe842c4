// corvalint-demo: music and OSC both ways through the shipped DLL.
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "demo/excerpt.h"
#include "demo/options.h"
#include "demo/osc_messages.h"
#include "demo/osc_ways.h"
#include "demo/performance.h"
#include "demo/scenario.h"
#include "demo/waiting.h"

namespace corvalint::demo {
namespace {

namespace fs = std::filesystem;

constexpr int kBadArguments = 2;
constexpr int kInterrupted = 130;
// So many messages that one in a hundred of them still means something.
constexpr std::size_t kLeastAtFullSpeed = 10'000;

std::vector<Piece> ReadPieces(const std::vector<fs::path>& files, std::size_t bars) {
  std::vector<Piece> pieces;
  std::size_t events = 0;
  for (const fs::path& file : files) {
    Piece piece;
    piece.song = device::ReadSong(file);
    if (bars > 0) piece.excerpt = FirstBars(piece.song, ReadBars(file), bars);
    events += piece.song.events.size();
    pieces.push_back(std::move(piece));
  }
  if (events == 0) throw std::runtime_error("there is no note in what is to be played");
  for (Piece& piece : pieces) piece.rounds = (kLeastAtFullSpeed + events - 1) / events;
  return pieces;
}

std::string Announce(const Piece& piece, const Options& options) {
  std::string text =
      "Playing \"" + piece.song.title + "\", " + Grouped(piece.song.events.size()) + " messages";
  if (!piece.excerpt.events.empty()) {
    const auto tenths = static_cast<std::uint64_t>(piece.excerpt.Length() / 100'000);
    text += ": " + std::to_string(options.bars) + (options.bars == 1 ? " bar (" : " bars (") +
            std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) +
            " s) at its own tempo, then all of it";
  } else {
    text += ": all of it";
  }
  if (piece.rounds > 1) text += " " + std::to_string(piece.rounds) + " times";
  return text + " as fast as it goes";
}

void ShowConsole(Scenario& scenario, const Options& options, Progress& progress) {
  if (!options.verbose) return;
  std::string text = scenario.NewConsoleText();
  for (std::size_t end = 0; (end = text.find('\n')) != std::string::npos; text.erase(0, end + 1)) {
    progress.Line("    | " + text.substr(0, text.find_first_of("\r\n")));
  }
}

void Play(Scenario& scenario, const std::vector<Piece>& pieces, const Options& options,
          Progress& progress, std::vector<Row>& rows) {
  std::vector<std::unique_ptr<Way>> ways;
  ways.push_back(std::make_unique<DeviceWay>(scenario, DeviceWay::Sink::kOutput));
  ways.push_back(std::make_unique<DeviceWay>(scenario, DeviceWay::Sink::kPort));
  ways.push_back(std::make_unique<InputWay>(scenario));
  for (const Piece& piece : pieces) {
    progress.Line(Announce(piece, options));
    for (std::size_t i = 0; i < ways.size(); ++i) {
      progress.Line(std::to_string(i + 1) + " of " + std::to_string(ways.size()) + ": " +
                    ways[i]->Title());
      Perform(*ways[i], piece, progress, rows);
      ShowConsole(scenario, options, progress);
    }
  }
}

// The song as the OSC ways play it: at a rate that leaves them time to breathe, so that what is
// measured is a message and not a queue, and as fast as it goes.
Piece OscPiece(const Piece& piece) {
  return {piece.song, Paced(piece.song, 2000, 1000), piece.rounds, "1,000/s"};
}

// Few, because each one costs the start of a program.
Piece OscSendPiece(const Piece& piece) {
  return {piece.song, Paced(piece.song, 60, 0), 0, "single"};
}

void PlayOsc(Scenario& scenario, const Piece& piece, const Options& options, Progress& progress,
             std::vector<Row>& rows) {
  progress.Line("Playing it in OSC messages, between programs of the desktop and the iPad");
  OscDump dump;
  DeviceOscPort port(scenario, dump.Port());
  progress.Line("  the iPad has opened port " + std::to_string(port.Port()) +
                " of 127.0.0.1, oscdump listens at port " + std::to_string(dump.Port()));
  OscSendWay fromOscSend(scenario, port);
  OscToDeviceWay toDevice(scenario, port);
  OscFromDeviceWay fromDevice(scenario, port, dump);
  const auto play = [&](const std::string& place, OscWay& way, const Piece& part) {
    progress.Line(place + " of 3: " + way.Title());
    Perform(way, part, progress, rows);
    ShowConsole(scenario, options, progress);
  };
  play("1", fromOscSend, OscSendPiece(piece));
  play("2", toDevice, OscPiece(piece));
  play("3", fromDevice, OscPiece(piece));
}

// Saves what tells about the run in a new folder and says where.
void Keep(Scenario& scenario, const std::string& failure) {
  if (!scenario.Started()) return;
  std::string folder = (fs::temp_directory_path() / "corvalint-demo-XXXXXX").string();
  if (mkdtemp(folder.data()) == nullptr) {
    std::cerr << "corvalint-demo: cannot make a folder for log and console texts\n";
    return;
  }
  if (!failure.empty()) std::ofstream(fs::path(folder) / "failure.txt") << failure << "\n";
  scenario.SaveEvidence(folder);
  std::cerr << "The library's log (pellora.log), its console lines and more are kept in " << folder
            << std::endl;
}

// Rows in the order in which a person compares them: each receiver's paces together.
std::vector<Row> InOrder(const std::vector<Row>& rows) {
  std::vector<Row> ordered;
  for (const Row& first : rows) {
    const auto same = [&first](const Row& row) { return row.way == first.way; };
    if (std::any_of(ordered.begin(), ordered.end(), same)) continue;
    std::copy_if(rows.begin(), rows.end(), std::back_inserter(ordered), same);
  }
  return ordered;
}

bool Report(const std::vector<Row>& rows, const std::vector<std::string>& complaints,
            Progress& progress) {
  progress.Line("\n" + FormatTable(InOrder(rows)));
  for (const std::string& complaint : complaints) progress.Line("Wrong " + complaint);
  const Verdict verdict = Judge(rows);
  progress.Line(verdict.text);
  return verdict.good && complaints.empty();
}

int Stopped() {
  std::cerr << "Stopped." << std::endl;
  return kInterrupted;
}

int Run(const Options& options) {
  const std::vector<Piece> pieces =
      ReadPieces(ChooseSongs(options, device::FindSongs()), options.bars);
  NoteInterrupts();
  Progress progress(std::cout, isatty(STDOUT_FILENO) != 0);
  Scenario scenario(progress);
  try {
    scenario.Start();
    ShowConsole(scenario, options, progress);
    std::vector<Row> rows;
    Play(scenario, pieces, options, progress, rows);
    PlayOsc(scenario, pieces.front(), options, progress, rows);
    const std::vector<std::string> complaints = scenario.Complaints();
    scenario.Finish();
    ShowConsole(scenario, options, progress);
    const bool good = Report(rows, complaints, progress);
    if (options.keep || !good) Keep(scenario, {});
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const Interrupted&) {
    progress.Abandon();
    return Stopped();
  } catch (const std::exception& error) {
    progress.Abandon();
    // Ctrl-C ends Wine too, and what failed then is no news.
    if (WasInterrupted()) return Stopped();
    std::string failure = error.what();
    if (const std::optional<int> code = scenario.HostEnded()) {
      failure += "; the host with the DLL has ended, code " + std::to_string(*code);
    }
    std::cerr << "corvalint-demo: " << failure << std::endl;
    Keep(scenario, failure);
    return EXIT_FAILURE;
  }
}

int Main(const std::vector<std::string>& arguments) {
  try {
    const Options options = ParseOptions(arguments);
    if (options.help) {
      std::cout << HelpText();
      return EXIT_SUCCESS;
    }
    return Run(options);
  } catch (const std::invalid_argument& error) {
    std::cerr << "corvalint-demo: " << error.what() << std::endl;
    return kBadArguments;
  } catch (const std::exception& error) {
    std::cerr << "corvalint-demo: " << error.what() << std::endl;
    return EXIT_FAILURE;
  }
}

}  // namespace
}  // namespace corvalint::demo

int main(int argc, char** argv) { return corvalint::demo::Main({argv + 1, argv + argc}); }
