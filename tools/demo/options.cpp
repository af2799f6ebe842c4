#include "demo/options.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <stdexcept>

namespace corvalint::demo {

namespace fs = std::filesystem;

namespace {

constexpr const char* kDefaultSong = "tttheme2";
constexpr std::size_t kMostBars = 999;

std::size_t BarsFrom(const std::string& text) {
  std::size_t bars = 0;
  const char* const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, bars);
  if (error != std::errc() || stopped != end || bars > kMostBars) {
    throw std::invalid_argument("--bars takes a number from 0 to " + std::to_string(kMostBars) +
                                ", not \"" + text + "\"");
  }
  return bars;
}

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](char letter) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
  });
  return text;
}

std::string Titles(const std::vector<fs::path>& songs) {
  std::string text;
  for (const fs::path& song : songs) text += "\n  " + song.stem().string();
  return text;
}

fs::path Find(const std::string& name, const std::vector<fs::path>& there) {
  std::vector<fs::path> found;
  for (const fs::path& song : there) {
    const std::string title = Lower(song.stem().string());
    if (title == Lower(name)) return song;
    if (title.find(Lower(name)) != std::string::npos) found.push_back(song);
  }
  if (found.size() == 1) return found.front();
  if (found.empty()) {
    throw std::invalid_argument("there is no song \"" + name + "\", only:" + Titles(there));
  }
  throw std::invalid_argument("\"" + name + "\" could be any of:" + Titles(found));
}

}  // namespace

Options ParseOptions(const std::vector<std::string>& arguments) {
  Options options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    const auto value = [&]() -> const std::string& {
      if (i + 1 >= arguments.size() || arguments[i + 1].empty()) {
        throw std::invalid_argument(argument + " needs a value");
      }
      return arguments[++i];
    };
    if (argument == "--song") {
      options.songs.push_back(value());
    } else if (argument == "--bars") {
      options.bars = BarsFrom(value());
    } else if (argument == "--all") {
      options.all = true;
    } else if (argument == "--verbose" || argument == "-v") {
      options.verbose = true;
    } else if (argument == "--keep") {
      options.keep = true;
    } else if (argument == "--help" || argument == "-h") {
      options.help = true;
    } else {
      throw std::invalid_argument("unknown argument \"" + argument + "\"; see --help");
    }
  }
  if (options.all && !options.songs.empty()) {
    throw std::invalid_argument("--all and --song exclude each other");
  }
  return options;
}

std::vector<fs::path> ChooseSongs(const Options& options, const std::vector<fs::path>& there) {
  if (there.empty()) {
    throw std::runtime_error("there is no music to play; install the package openttd-openmsx");
  }
  if (options.all) return there;
  if (options.songs.empty()) return {Find(kDefaultSong, there)};
  std::vector<fs::path> chosen;
  for (const std::string& name : options.songs) {
    const fs::path song = Find(name, there);
    if (std::find(chosen.begin(), chosen.end(), song) == chosen.end()) chosen.push_back(song);
  }
  return chosen;
}

std::string HelpText() {
  return R"(Usage: corvalint-demo [OPTION...]

Plays music through corvalint_wrapper.dll, at a simulated Windows desk under Wine and with two
simulated devices: from a device to a Windows output, from a device to the port that it publishes on
the desktop, and from a Windows input to both devices. Each way is played at the music's own tempo
for some bars and then as fast as it goes. Then the first song is played in OSC messages through a
port that a device opens on the desktop, to and from programs that are not ours (oscsend, oscdump).
A table at the end compares what was sent and received.

  --song NAME  play this song (a part of its name will do); may be given several times
  --all        play every song of the OpenMSX collection
  --bars N     bars at the song's own tempo (default 3; 0 plays only as fast as it goes)
  --verbose    also show what the library prints
  --keep       keep the library's log and console texts; a failure keeps them anyway
  --help       this text

The exit code is 0 if nothing was lost, changed or reordered, 1 if something was or something failed,
2 for arguments that make no sense, 130 after Ctrl-C.
)";
}

}  // namespace corvalint::demo
