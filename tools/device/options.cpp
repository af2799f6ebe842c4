#include "device/options.h"

#include <charconv>
#include <functional>
#include <map>
#include <ostream>
#include <stdexcept>

namespace corvalint::device {
namespace {

// The whole text as a number of T's range, or an error that names the option.
template <class T>
T Number(const std::string& option, const std::string& text) {
  T value{};
  const char* end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stopped != end) {
    throw std::invalid_argument(option + ": \"" + text + "\" is not a number it can take");
  }
  return value;
}

NamedEndpoint Endpoint(const std::string& option, const std::string& text) {
  // The last colon separates, since a name may contain some.
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon == 0) {
    throw std::invalid_argument(option + ": \"" + text + "\" is not of the form NAME:ID");
  }
  return {text.substr(0, colon), Number<std::int32_t>(option, text.substr(colon + 1))};
}

CutHow CutManner(const std::string& option, const std::string& text) {
  if (text == "reset") return CutHow::kReset;
  if (text == "end") return CutHow::kFinish;
  throw std::invalid_argument(option + ": \"" + text + "\" is neither \"reset\" nor \"end\"");
}

using Setter =
    std::function<void(ProgramOptions&, const std::string& option, const std::string& value)>;

const std::map<std::string, Setter>& OptionsWithValue() {
  using O = ProgramOptions;
  using S = const std::string;
  static const std::map<std::string, Setter> setters{
      {"--port", [](O& o, S& k, S& v) { o.port = Number<std::uint16_t>(k, v); }},
      {"--name", [](O& o, S&, S& v) { o.name = v; }},
      {"--udid", [](O& o, S&, S& v) { o.udid = v; }},
      {"--source", [](O& o, S& k, S& v) { o.sources.push_back(Endpoint(k, v)); }},
      {"--destination", [](O& o, S& k, S& v) { o.destinations.push_back(Endpoint(k, v)); }},
      {"--play", [](O& o, S&, S& v) { o.songFile = v; }},
      {"--id", [](O& o, S& k, S& v) { o.songId = Number<std::int32_t>(k, v); }},
      {"--seconds", [](O& o, S& k, S& v) { o.seconds = Number<double>(k, v); }},
      {"--clock", [](O& o, S& k, S& v) { o.clockMilliseconds = Number<std::int64_t>(k, v); }},
      {"--slow", [](O& o, S& k, S& v) { o.slow = Number<std::size_t>(k, v); }},
      {"--pieces", [](O& o, S& k, S& v) { o.pieces = Number<std::size_t>(k, v); }},
      {"--stall-after", [](O& o, S& k, S& v) { o.stallAfter = Number<std::uint64_t>(k, v); }},
      {"--cut-after", [](O& o, S& k, S& v) { o.cutAfter = Number<std::uint64_t>(k, v); }},
      {"--cut-how", [](O& o, S& k, S& v) { o.cutHow = CutManner(k, v); }},
      {"--rubbish", [](O& o, S& k, S& v) { o.rubbishSeed = Number<std::uint64_t>(k, v); }},
      {"--record", [](O& o, S&, S& v) { o.recordFile = v; }},
  };
  return setters;
}

bool SetFlag(ProgramOptions& options, const std::string& option) {
  if (option == "--help" || option == "-h") {
    options.help = true;
  } else if (option == "--fast") {
    options.fast = true;
  } else if (option == "--once") {
    options.once = true;
  } else if (option == "--verbose" || option == "-v") {
    options.verbose = true;
  } else {
    return false;
  }
  return true;
}

void CheckTogether(const ProgramOptions& options) {
  if (options.songFile && !options.songId && options.sources.empty()) {
    throw std::invalid_argument("--play needs --id, or a --source to play from");
  }
  if (!options.songFile && (options.fast || options.songId || options.seconds)) {
    throw std::invalid_argument("--fast, --id and --seconds belong to --play");
  }
  if (options.seconds && !(*options.seconds > 0)) {
    throw std::invalid_argument("--seconds: must be above 0");
  }
}

}  // namespace

ProgramOptions ParseOptions(const std::vector<std::string>& arguments) {
  ProgramOptions options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& option = arguments[i];
    if (SetFlag(options, option)) continue;
    const auto setter = OptionsWithValue().find(option);
    if (setter == OptionsWithValue().end()) {
      throw std::invalid_argument("unknown option " + option);
    }
    if (i + 1 == arguments.size()) throw std::invalid_argument(option + " needs a value");
    setter->second(options, option, arguments[++i]);
  }
  if (!options.help) CheckTogether(options);
  return options;
}

void PrintUsage(std::ostream& out) {
  out << R"(corvalint-device: a simulated iOS device with its companion app

It listens on 127.0.0.1 for the stream that the bridge opens to a device, announces its MIDI
endpoints, plays, and prints what it is sent. Ctrl-C ends it.

  corvalint-device [options]

The device
  --port N               TCP port (23451); 0 chooses a free one, which the first line names
  --name TEXT            name to show (Simulated iPad)
  --udid TEXT            identifier to show
  --source NAME:ID       MIDI source to announce on every connection; may be repeated
  --destination NAME:ID  MIDI destination to announce; may be repeated
  --clock MS             the device's clock is so many milliseconds ahead of the machine's

Music
  --play FILE            Standard MIDI File to play after each connection
  --id ID                endpoint id to play to or from (default: the first --source's)
  --seconds S            only the first S seconds of it
  --fast                 as fast as it goes instead of at its own tempo

Bad manners
  --slow N               reads only N bytes per millisecond
  --pieces N             sends N bytes at a time, also across frame borders
  --stall-after N        stops reading after N frames
  --cut-after N          cuts the cable once N bytes have been received, the first time only
  --cut-how reset|end    how to cut: a TCP reset (default) or a regular end
  --rubbish SEED         sends 1000 damaged packets after each connection

Output
  --record FILE          one line of JSON for each message received
  --once                 end after the song, or when the first connection ends
  -v, --verbose          also one line for each "/midi" message
  -h, --help             this text

Exit status: 0; 1 when something the bridge sent was wrong or the device failed; 2 for a mistake in
the options or a file.
)";
}

}  // namespace corvalint::device
