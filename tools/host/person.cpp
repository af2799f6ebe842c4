#include "host/person.h"

#include <chrono>
#include <ctime>
#include <exception>
#include <optional>

#include "host/commands.h"

namespace corvalint::host {
namespace {

using std::chrono::steady_clock;

constexpr int kPollMilliseconds = 200;
constexpr int kScanPollMilliseconds = 25;
constexpr int kScanPolls = 60;

int64_t CountEndpoints(const Wrapper& wrapper) {
  return wrapper.sources.count() + wrapper.destinations.count();
}

std::string ClientsText(unsigned int clients) {
  return std::to_string(clients) + (clients == 1 ? " device" : " devices") + " connected";
}

}  // namespace

std::string HelpText() {
  return "corvalint-host [--verbose] [COMMAND]   does the command, or asks for commands\n"
         "corvalint-host --json [--no-start]     is driven by a script, see tools/host/README.md\n"
         "corvalint-host --help\n"
         "\n"
         "Commands:\n"
         "  list             MIDI sources (inputs) and destinations (outputs) of this machine:\n"
         "                   id, on or off, availability, name\n"
         "  on ID|NAME       switches on; as COMMAND it stays and watches, since what is on\n"
         "                   goes off when this program ends\n"
         "  off ID|NAME      switches off\n"
         "  toggle ID|NAME   switches the other way; as COMMAND it stays and watches\n"
         "  watch [SECONDS]  says what changes, until the time is over or Ctrl-C\n"
         "  clients          how many iOS devices are connected\n"
         "  help             this text\n"
         "  quit             ends the program, and with it the bridge\n"
         "\n"
         "A NAME that a source and a destination share means both; write `source NAME` or\n"
         "`destination NAME` for one. Ids are new in each run.\n"
         "--verbose sends the library's own lines, otherwise not shown, to standard error.\n";
}

void Person::Start() {
  wrapper.start();
  // A scan fills the lists one device at a time: it is over when the number no longer grows.
  int64_t before = 0;
  for (int poll = 0; poll < kScanPolls; ++poll) {
    system.sleep(kScanPollMilliseconds);
    int64_t now = CountEndpoints(wrapper);
    if (now > 0 && now == before) return;
    before = now;
  }
}

bool Person::Do(std::string_view line) {
  Command command = ParseCommand(line);
  try {
    return Dispatch(command.verb, command.rest);
  } catch (const std::exception& failure) {
    // A device that keeps coming and going can defeat a walk through the lists.
    print(std::string("That failed: ") + failure.what() + "\n");
    return false;
  }
}

bool Person::DoAndStay(std::string_view line) {
  if (!Do(line)) return false;
  std::string verb = ParseCommand(line).verb;
  if (verb != "on" && verb != "toggle") return true;
  print("Ctrl-C ends the bridge.\n");
  return Do("watch");
}

bool Person::Dispatch(const std::string& verb, const std::string& rest) {
  if (verb.empty()) return true;
  if (verb == "on" || verb == "off" || verb == "toggle") return Switch(verb, rest);
  if (verb == "watch") return Watch(rest);
  bool known = verb == "list" || verb == "clients" || verb == "help" || verb == "quit";
  if (!known) {
    print("There is no command " + verb + "; `help` names them all.\n");
    return false;
  }
  if (!rest.empty()) {
    print(verb + " takes nothing after it.\n");
    return false;
  }
  if (verb == "list") print(FormatListing(ReadListing(wrapper, system)));
  if (verb == "clients") print(ClientsText(wrapper.usbClients()) + "\n");
  if (verb == "help") print(HelpText());
  finished = verb == "quit";
  return true;
}

bool Person::Switch(const std::string& verb, const std::string& rest) {
  if (rest.empty()) {
    print(verb + " needs an id or a name; `list` shows them.\n");
    return false;
  }
  Target target = ParseTarget(rest);
  Listing listing = ReadListing(wrapper, system);
  bool done = true;
  size_t count = 0;
  auto switchAll = [&](const SideCalls& calls, const char* side,
                       const std::vector<Endpoint>& endpoints) {
    for (const Endpoint& endpoint : FindEndpoints(endpoints, target.text)) {
      ++count;
      if (!SwitchOne(calls, side, endpoint, verb)) done = false;
    }
  };
  if (target.side != SideFilter::kDestinations) {
    switchAll(wrapper.sources, "source", listing.sources);
  }
  if (target.side != SideFilter::kSources) {
    switchAll(wrapper.destinations, "destination", listing.destinations);
  }
  if (count == 0) print("No endpoint has the id or name " + target.text + ".\n");
  return done && count > 0;
}

bool Person::SwitchOne(const SideCalls& calls, std::string_view side, const Endpoint& endpoint,
                       const std::string& verb) {
  bool wanted = verb == "toggle" ? !endpoint.on : verb == "on";
  if (endpoint.on != wanted) calls.toggle(static_cast<unsigned int>(endpoint.id));
  bool on = calls.status(endpoint.id) != 0;
  std::string result = on ? " is on" : " is off";
  if (on != wanted) result = wanted ? " could not be opened" : " could not be switched off";
  print(std::string(side) + " \"" + endpoint.name + "\"" + result + "\n");
  return on == wanted;
}

bool Person::Watch(const std::string& seconds) {
  std::optional<int32_t> limit;
  if (!seconds.empty()) {
    limit = ParseInt32(seconds);
    if (!limit || *limit < 0) {
      print("watch takes a number of seconds.\n");
      return false;
    }
  }
  steady_clock::time_point start = steady_clock::now();
  Listing before = ReadListing(wrapper, system);
  unsigned int clientsBefore = wrapper.usbClients();
  PrintNow(ClientsText(clientsBefore));
  while (!system.takeInterrupt()) {
    if (limit && steady_clock::now() - start >= std::chrono::seconds(*limit)) return true;
    system.sleep(kPollMilliseconds);
    Listing now = ReadListing(wrapper, system);
    for (const std::string& line : DescribeChanges("source", before.sources, now.sources)) {
      PrintNow(line);
    }
    for (const std::string& line :
         DescribeChanges("destination", before.destinations, now.destinations)) {
      PrintNow(line);
    }
    unsigned int clients = wrapper.usbClients();
    if (clients != clientsBefore) PrintNow(ClientsText(clients));
    before = std::move(now);
    clientsBefore = clients;
  }
  return true;
}

void Person::PrintNow(const std::string& line) {
  std::time_t now = std::time(nullptr);
  char time[16] = "";
  if (const std::tm* local = std::localtime(&now)) {
    std::strftime(time, sizeof time, "%H:%M:%S", local);
  }
  print(std::string(time) + "  " + line + "\n");
}

}  // namespace corvalint::host
