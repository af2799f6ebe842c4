#include "host/person.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <optional>
#include <stdexcept>

#include "host/documents.h"
#include "host/exit_codes.h"
#include "host/help.h"
#include "host/port_counts.h"
#include "host/watch.h"

namespace corvalint::host {
namespace {

using std::chrono::steady_clock;

constexpr int kPollMilliseconds = 200;
constexpr int kStartPollMilliseconds = 25;
constexpr int kScanPolls = 100;

// A scan changes both lists in one moment, so the first that is not empty is whole.
bool ListsAreFilled(const Wrapper& wrapper) {
  return wrapper.sources.count() > 0 || wrapper.destinations.count() > 0;
}

}  // namespace

void Person::Start() {
  wrapper.start();
  for (int poll = 0; poll < kScanPolls && !ListsAreFilled(wrapper); ++poll) {
    system.sleep(kStartPollMilliseconds);
    deviceGrace -= kStartPollMilliseconds;
  }
}

// Apple's library tells of attached devices on a thread of its own, some time after the start.
unsigned int Person::CountDevices() {
  while (wrapper.usbClients() == 0 && deviceGrace > 0) {
    system.sleep(kStartPollMilliseconds);
    deviceGrace -= kStartPollMilliseconds;
  }
  deviceGrace = 0;
  return wrapper.usbClients();
}

int Person::Do(std::string_view line) {
  const Command command = ParseCommand(line);
  const std::string problem = CommandProblem(command);
  if (!problem.empty()) return Fail(kExitUsage, problem + "; help says more");
  try {
    return Dispatch(command);
  } catch (const std::out_of_range& failure) {
    // A device that keeps coming and going can defeat a walk through the lists.
    return Fail(kExitFailed, std::string("that failed: ") + failure.what());
  }
}

int Person::DoAndStay(std::string_view line) {
  const int code = Do(line);
  if (code != kExitDone) return code;
  const std::string verb = ParseCommand(line).verb;
  if (verb != "on" && verb != "toggle") return kExitDone;
  if (!output.json) output.print("Ctrl-C ends the bridge.\n");
  return Do("watch");
}

int Person::Dispatch(const Command& command) {
  const std::string& verb = command.verb;
  if (verb == "on" || verb == "off" || verb == "toggle") return Switch(verb, command.rest);
  if (verb == "watch") Watch(command.rest);
  if (verb == "list") List();
  if (verb == "clients") TellDevices();
  if (verb == "help") output.print(CommandsText());
  if (verb == "doctor") return Fail(kExitUsage, "doctor starts the bridge itself: end this first");
  finished = verb == "quit";
  return kExitDone;
}

void Person::List() {
  if (output.json) {
    const unsigned int devices = CountDevices();
    output.print(ListDocument(ReadListing(wrapper, system), devices) + "\n");
  } else {
    output.print(FormatListing(ReadListing(wrapper, system), system.columns()));
  }
}

void Person::TellDevices() {
  const unsigned int devices = CountDevices();
  output.print(output.json ? DevicesDocument(devices, DateAndTime()) + "\n"
                           : DevicesText(devices) + "\n");
}

int Person::Switch(const std::string& verb, const std::string& rest) {
  const Target target = ParseTarget(rest);
  const Listing listing = ReadListing(wrapper, system);
  std::vector<Endpoint> sources;
  std::vector<Endpoint> destinations;
  if (target.side != SideFilter::kDestinations) {
    sources = FindEndpoints(listing.sources, target.text);
  }
  if (target.side != SideFilter::kSources) {
    destinations = FindEndpoints(listing.destinations, target.text);
  }
  if (sources.empty() && destinations.empty()) {
    return Fail(kExitNoEndpoint, "no endpoint has the id or name " + target.text);
  }
  if (sources.size() > 1 || destinations.size() > 1) {
    return Fail(kExitAmbiguous, "several endpoints are called " + target.text + ": use an id");
  }
  const bool sideNotGiven = target.side == SideFilter::kAny;
  if (sideNotGiven && !sources.empty() && !destinations.empty()) {
    return Fail(kExitAmbiguous, target.text + " is a source and a destination: write " + verb +
                                    " source, " + verb + " destination or " + verb +
                                    " both before it");
  }
  int code = kExitDone;
  if (!sources.empty()) code = SwitchOne(true, sources.front(), verb);
  if (!destinations.empty()) code = std::max(code, SwitchOne(false, destinations.front(), verb));
  return code;
}

int Person::SwitchOne(bool isSource, const Endpoint& endpoint, const std::string& verb) {
  const SideCalls& calls = isSource ? wrapper.sources : wrapper.destinations;
  const std::string side = isSource ? "source" : "destination";
  const bool wanted = verb == "toggle" ? !endpoint.on : verb == "on";
  if (endpoint.on != wanted) calls.toggle(static_cast<unsigned int>(endpoint.id));
  const bool on = calls.status(endpoint.id) != 0;
  const std::string quoted = side + " \"" + endpoint.name + "\"";
  if (on != wanted) {
    return Fail(kExitFailed,
                quoted + (wanted ? " could not be opened" : " could not be switched off"));
  }
  output.print(output.json ? SwitchedDocument(side, endpoint, on) + "\n"
                           : quoted + (on ? " is on\n" : " is off\n"));
  return kExitDone;
}

std::unique_ptr<WatchView> Person::OpenView() {
  if (output.json) return std::make_unique<DocumentView>(output.print);
  std::unique_ptr<Screen> screen = system.openScreen ? system.openScreen() : nullptr;
  if (screen == nullptr) return std::make_unique<LineView>(output.print);
  return std::make_unique<LiveView>(std::move(screen), system);
}

void Person::Watch(const std::string& seconds) {
  const std::optional<std::int32_t> limit = ParseInt32(seconds);
  const steady_clock::time_point start = steady_clock::now();
  PortCounts ports(system);
  Look look;
  const auto lookAround = [&] {
    const std::int64_t second = std::time(nullptr);
    look.listing = ReadListing(wrapper, system);
    look.devices = wrapper.usbClients();
    ports.Look(look.listing.sources, second);
    look.news = ports.TakeNews();
    look.rates = ports.Rates(second);
  };
  lookAround();
  const std::unique_ptr<WatchView> view = OpenView();
  view->Begin(look);
  while (!system.takeInterrupt()) {
    if (limit && steady_clock::now() - start >= std::chrono::seconds(*limit)) break;
    system.sleep(kPollMilliseconds);
    const Listing before = std::move(look.listing);
    lookAround();
    look.changes.clear();
    AddChanges(look.changes, "source", before.sources, look.listing.sources);
    AddChanges(look.changes, "destination", before.destinations, look.listing.destinations);
    view->Update(look);
  }
  look.changes.clear();
  look.news = ports.TakeNews(true);
  if (!look.news.empty()) view->Update(look);
}

int Person::Fail(int exitCode, const std::string& text) {
  output.complain(exitCode, text);
  return exitCode;
}

}  // namespace corvalint::host
