#include "host/script.h"

#include <cstddef>
#include <cstdint>
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

std::string ValueLine(std::int64_t value) { return JsonObject().Number("value", value).Text(); }

std::int32_t Int32At(const std::vector<std::string>& words, std::size_t index) {
  const std::optional<std::int32_t> number = ParseInt32(words[index]);
  if (!number)
    throw BadCommand("argument " + std::to_string(index + 1) + " is not a 32-bit number");
  return *number;
}

std::int64_t Int64At(const std::vector<std::string>& words, std::size_t index) {
  const std::optional<std::int64_t> number = ParseInt64(words[index]);
  if (!number)
    throw BadCommand("argument " + std::to_string(index + 1) + " is not a 64-bit number");
  return *number;
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
    const Command command = ParseCommand(line);
    return Dispatch(command.verb, SplitWords(command.rest));
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

struct Script::Verb {
  std::string_view name;
  std::size_t words;  // behind it; a verb stands twice if it may have more or less of them
  std::string (*answer)(Script& script, const Words& words);
};

// The verbs that exist once for sources and once for destinations.
template <SideCalls Wrapper::*side>
struct Script::SideVerbs {
  static const SideCalls& CallsOf(const Script& script) { return script.wrapper.*side; }

  static std::string List(Script& script, const Words&) {
    const char* const key = side == &Wrapper::sources ? "sources" : "destinations";
    return JsonObject()
        .Raw(key, EndpointsJson(ReadEndpoints(CallsOf(script), script.system)))
        .Text();
  }
  static std::string Count(Script& script, const Words&) {
    return ValueLine(CallsOf(script).count());
  }
  static std::string IdAt(Script& script, const Words& words) {
    return ValueLine(CallsOf(script).idAt(Int32At(words, 0)));
  }
  static std::string NameLength(Script& script, const Words& words) {
    return ValueLine(CallsOf(script).nameLength(Int32At(words, 0)));
  }
  static std::string NameByte(Script& script, const Words& words) {
    const char byte = CallsOf(script).nameByte(Int32At(words, 0), Int32At(words, 1));
    return ValueLine(static_cast<unsigned char>(byte));
  }
  static std::string Status(Script& script, const Words& words) {
    return ValueLine(CallsOf(script).status(Int32At(words, 0)));
  }
  static std::string Available(Script& script, const Words& words) {
    return ValueLine(CallsOf(script).available(Int32At(words, 0)));
  }
  static std::string Toggle(Script& script, const Words& words) {
    const std::int32_t id = Int32At(words, 0);
    CallsOf(script).toggle(static_cast<unsigned int>(id));
    return JsonObject().Number("toggled", id).Text();
  }
};

std::string Script::Dispatch(const std::string& name, const Words& words) {
  using Sources = SideVerbs<&Wrapper::sources>;
  using Destinations = SideVerbs<&Wrapper::destinations>;
  static const Verb kVerbs[] = {
      {"start", 0, AnswerStart},
      {"start-again", 0, AnswerStartAgain},
      {"clients", 0, AnswerClients},
      {"fixed", 0, AnswerFixed},
      {"fixed", 2, AnswerFixed},
      {"handles", 0, AnswerHandles},
      {"quit", 0, AnswerQuit},
      {"sources", 0, Sources::List},
      {"destinations", 0, Destinations::List},
      {"count-source", 0, Sources::Count},
      {"count-destination", 0, Destinations::Count},
      {"id-source", 1, Sources::IdAt},
      {"id-destination", 1, Destinations::IdAt},
      {"name-length-source", 1, Sources::NameLength},
      {"name-length-destination", 1, Destinations::NameLength},
      {"name-byte-source", 2, Sources::NameByte},
      {"name-byte-destination", 2, Destinations::NameByte},
      {"source-status", 1, Sources::Status},
      {"destination-status", 1, Destinations::Status},
      {"source-available", 1, Sources::Available},
      {"destination-available", 1, Destinations::Available},
      {"toggle-source", 1, Sources::Toggle},
      {"toggle-destination", 1, Destinations::Toggle},
  };
  const Verb* named = nullptr;
  for (const Verb& verb : kVerbs) {
    if (verb.name != name) continue;
    if (verb.words == words.size()) return verb.answer(*this, words);
    named = &verb;
  }
  if (named == nullptr) throw BadCommand("unknown command");
  throw BadCommand("expected " + std::to_string(named->words) + " arguments, got " +
                   std::to_string(words.size()));
}

std::string Script::AnswerStart(Script& script, const Words&) {
  if (script.starts > 0) throw BadCommand("already started");
  script.Start();
  return JsonObject().Number("started", script.starts).Text();
}

std::string Script::AnswerStartAgain(Script& script, const Words&) {
  if (script.starts == 0) throw BadCommand("not started yet");
  script.Start();
  return JsonObject().Number("started", script.starts).Text();
}

std::string Script::AnswerClients(Script& script, const Words&) {
  return JsonObject().Number("clients", script.wrapper.usbClients()).Text();
}

std::string Script::AnswerFixed(Script& script, const Words& words) {
  const std::int64_t first = words.empty() ? 0x123456789ABCDEF0 : Int64At(words, 0);
  const std::int64_t second = words.empty() ? -1 : Int64At(words, 1);
  const Wrapper& wrapper = script.wrapper;
  wrapper.portControl(first, second);
  return JsonObject()
      .Number("wifiClients", wrapper.wifiClients())
      .Number("scriptActive", wrapper.scriptActive())
      .Number("activeConnections", wrapper.activeConnections())
      .Text();
}

std::string Script::AnswerHandles(Script& script, const Words&) {
  const ProcessCounts counts = script.system.processCounts();
  return JsonObject().Number("handles", counts.handles).Number("threads", counts.threads).Text();
}

std::string Script::AnswerQuit(Script& script, const Words&) {
  script.finished = true;
  return JsonObject().Bool("quit", true).Text();
}

}  // namespace corvalint::host
