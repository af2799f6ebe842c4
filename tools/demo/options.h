#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace corvalint::demo {

struct Options {
  std::vector<std::string> songs;  // names or parts of names
  bool all = false;
  std::size_t bars = 3;  // at the song's own tempo; 0: none
  bool verbose = false;
  bool keep = false;
  bool help = false;
};

// Throws std::invalid_argument with a line for the person who typed them.
Options ParseOptions(const std::vector<std::string>& arguments);

// The files to play, in order and each once. A name is a file's name without its ending, or a part
// that only one file has, in any case of letters. Throws std::invalid_argument, naming the songs
// that there are, or std::runtime_error if there are none at all.
std::vector<std::filesystem::path> ChooseSongs(const Options& options,
                                               const std::vector<std::filesystem::path>& there);

// What --help prints.
std::string HelpText();

}  // namespace corvalint::demo
