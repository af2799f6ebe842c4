#include "host/script.h"

#include <optional>
#include <stdexcept>

#include "host/commands.h"
#include "host/documents.h"
#include "host/endpoints.h"
#include "host/json.h"

namespace corvalint::host {
namespace {

// A command that cannot be carried out as it was written; the text goes to the script.
struct BadCommand : std::runtime_error {
  using std::runtime_error::runtime_error;
};

std::string ErrorLine(std::string_view error) { return JsonObject().String("error", error).Text(); }

std::string ValueLine(int64_t value) { return JsonObject().Number("value", value).Text(); }

void NeedWords(const std::vector<std::string>& words, size_t count) {
  if (words.size() != count) {
    throw BadCommand("expected " + std::to_string(count) + " arguments, got " +
                     std::to_string(words.size()));
  }
}

int32_t Int32At(const std::vector<std::string>& words, size_t index) {
  std::optional<int32_t> number = ParseInt32(words[index]);
  if (!number)
    throw BadCommand("argument " + std::to_string(index + 1) + " is not a 32-bit number");
  return *number;
}

int64_t Int64At(const std::vector<std::string>& words, size_t index) {
  std::optional<int64_t> number = ParseInt64(words[index]);
  if (!number)
    throw BadCommand("argument " + std::to_string(index + 1) + " is not a 64-bit number");
  return *number;
}

// The command without the side's name in it, "toggle-source" as "toggle-"; empty if it has none.
std::string WithoutSide(const std::string& verb, std::string_view side) {
  size_t place = verb.find(side);
  if (place == std::string::npos) return {};
  std::string bare = verb;
  return bare.erase(place, side.size());
}

}  // namespace

void Script::Start() {
  wrapper.start();
  ++starts;
}

std::string Script::ReadyLine() const {
  return JsonObject()
      .Bool("ready", true)
      .Number("pid", system.processId)
      .Bool("started", starts > 0)
      .Text();
}

std::string Script::Answer(std::string_view line) {
  try {
    return Dispatch(ParseCommand(line).verb, SplitWords(ParseCommand(line).rest));
  } catch (const std::out_of_range& failure) {
    return JsonObject().String("error", "out_of_range").String("what", failure.what()).Text();
  } catch (const BadCommand& failure) {
    return ErrorLine(failure.what());
  } catch (const std::exception& failure) {
    return JsonObject().String("error", "exception").String("what", failure.what()).Text();
  } catch (...) {
    return ErrorLine("an exception of unknown type");
  }
}

std::string Script::Dispatch(const std::string& verb, const std::vector<std::string>& words) {
  if (verb == "fixed") return AnswerFixed(words);
  if (verb == "sources" || verb == "destinations") {
    NeedWords(words, 0);
    const SideCalls& calls = verb == "sources" ? wrapper.sources : wrapper.destinations;
    return JsonObject().Raw(verb, EndpointsJson(ReadEndpoints(calls, system))).Text();
  }
  if (verb == "start" || verb == "start-again" || verb == "clients" || verb == "handles" ||
      verb == "quit") {
    NeedWords(words, 0);
    if (verb == "start") return AnswerStart(false);
    if (verb == "start-again") return AnswerStart(true);
    if (verb == "clients") return JsonObject().Number("clients", wrapper.usbClients()).Text();
    if (verb == "handles") return AnswerHandles();
    finished = true;
    return JsonObject().Bool("quit", true).Text();
  }
  return AnswerSide(verb, words);
}

std::string Script::AnswerStart(bool again) {
  if (!again && starts > 0) throw BadCommand("already started");
  if (again && starts == 0) throw BadCommand("not started yet");
  Start();
  return JsonObject().Number("started", starts).Text();
}

std::string Script::AnswerFixed(const std::vector<std::string>& words) const {
  int64_t first = 0x123456789ABCDEF0;
  int64_t second = -1;
  if (!words.empty()) {
    NeedWords(words, 2);
    first = Int64At(words, 0);
    second = Int64At(words, 1);
  }
  wrapper.portControl(first, second);
  return JsonObject()
      .Number("wifiClients", wrapper.wifiClients())
      .Number("scriptActive", wrapper.scriptActive())
      .Number("activeConnections", wrapper.activeConnections())
      .Text();
}

std::string Script::AnswerHandles() const {
  ProcessCounts counts = system.processCounts();
  return JsonObject().Number("handles", counts.handles).Number("threads", counts.threads).Text();
}

std::string Script::AnswerSide(const std::string& verb,
                               const std::vector<std::string>& words) const {
  std::string bare = WithoutSide(verb, "source");
  bool isSource = !bare.empty();
  if (!isSource) bare = WithoutSide(verb, "destination");
  const SideCalls& calls = isSource ? wrapper.sources : wrapper.destinations;
  if (bare == "name-byte-") {
    NeedWords(words, 2);
    char byte = calls.nameByte(Int32At(words, 0), Int32At(words, 1));
    return ValueLine(static_cast<unsigned char>(byte));
  }
  bool known = bare == "toggle-" || bare == "-status" || bare == "-available" ||
               bare == "name-length-" || bare == "id-" || bare == "count-";
  if (!known) throw BadCommand("unknown command");
  if (bare == "count-") {
    NeedWords(words, 0);
    return ValueLine(calls.count());
  }
  NeedWords(words, 1);
  int32_t number = Int32At(words, 0);
  if (bare == "-status") return ValueLine(calls.status(number));
  if (bare == "-available") return ValueLine(calls.available(number));
  if (bare == "name-length-") return ValueLine(calls.nameLength(number));
  if (bare == "id-") return ValueLine(calls.idAt(number));
  calls.toggle(static_cast<unsigned int>(number));
  return JsonObject().Number("toggled", number).Text();
}

}  // namespace corvalint::host
