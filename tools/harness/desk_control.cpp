#include "harness/desk_control.h"

#include <algorithm>
#include <stdexcept>

#include "harness/words.h"

namespace corvalint::harness {

namespace {

std::string PacingText(const Pacing& pacing) {
  std::string text = " repeat=" + std::to_string(pacing.repeat);
  if (pacing.paceUs != 0) text += " pace=" + std::to_string(pacing.paceUs);
  if (pacing.piece != 0) text += " piece=" + std::to_string(pacing.piece);
  if (pacing.stamps) text += " stamps=1";
  return text;
}

std::string HexOfBytes(const Bytes& bytes) {
  return HexOf({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

template <typename Map>
typename Map::mapped_type ValueOf(const Map& map, const typename Map::key_type& key) {
  const auto found = map.find(key);
  return found == map.end() ? typename Map::mapped_type() : found->second;
}

template <typename Map>
std::size_t SizeOf(const Map& map, int id) {
  const auto found = map.find(id);
  return found == map.end() ? 0 : found->second.size();
}

}  // namespace

DeskControl::DeskControl() : server([this](std::string_view line) { TakeLine(line); }) {}

bool DeskControl::WaitUntilConnected(std::chrono::milliseconds limit) {
  return server.WaitUntilConnected(limit);
}

// The reply to a command comes behind everything that the desk told before it.
void DeskControl::Settle() {
  try {
    Send("ping");
  } catch (const std::runtime_error&) {
    // The desk is gone, and all that it told is here.
  }
}

void DeskControl::Open() { Send("go"); }

int DeskControl::AddInput(std::string_view name, int position) {
  return static_cast<int>(
      ToNumber(Send("input-add name=" + HexOf(name) + " position=" + std::to_string(position))));
}

int DeskControl::AddOutput(std::string_view name, int position) {
  return static_cast<int>(
      ToNumber(Send("output-add name=" + HexOf(name) + " position=" + std::to_string(position))));
}

void DeskControl::RemoveInput(int id, std::int64_t result) {
  Send("input-remove " + std::to_string(id) + " result=" + std::to_string(result));
}

void DeskControl::RemoveOutput(int id, std::int64_t result) {
  Send("output-remove " + std::to_string(id) + " result=" + std::to_string(result));
}

bool DeskControl::WaitForInputStarted(int id, std::chrono::milliseconds limit) {
  return WaitUntil([&] { return ValueOf(inputStates, id) == "started"; }, limit);
}

bool DeskControl::WaitForInputClosed(int id, std::chrono::milliseconds limit) {
  return WaitUntil([&] { return ValueOf(inputStates, id) == "closed"; }, limit);
}

bool DeskControl::WaitForOutputOpen(int id, std::chrono::milliseconds limit) {
  return WaitUntil([&] { return ValueOf(outputStates, id) == "open"; }, limit);
}

bool DeskControl::WaitForOutputClosed(int id, std::chrono::milliseconds limit) {
  return WaitUntil([&] { return ValueOf(outputStates, id) == "closed"; }, limit);
}

void DeskControl::SetPlayTime(int outputId, std::int64_t ns) {
  Send("output-play " + std::to_string(outputId) + " ns=" + std::to_string(ns));
}

void DeskControl::SetStuck(int outputId, bool stuck) {
  Send("output-play " + std::to_string(outputId) + (stuck ? " stuck=1" : " stuck=0"));
}

int DeskControl::NextJob() {
  const std::lock_guard hold(lock);
  return ++lastJob;
}

int DeskControl::Inject(int inputId, const std::vector<InputItem>& items, const Pacing& pacing) {
  const int job = NextJob();
  std::string list;
  for (const InputItem& item : items) {
    if (!list.empty()) list += ',';
    list += static_cast<char>(item.kind);
    list += HexOfBytes(item.bytes);
  }
  Send("input-inject " + std::to_string(inputId) + " " + std::to_string(job) + " " + list +
       PacingText(pacing));
  return job;
}

int DeskControl::Play(int portId, const std::vector<Bytes>& messages, const Pacing& pacing) {
  const int job = NextJob();
  std::string list;
  for (const Bytes& message : messages) {
    if (!list.empty()) list += ',';
    list += HexOfBytes(message);
  }
  Send("port-play " + std::to_string(portId) + " " + std::to_string(job) + " " + list +
       PacingText(pacing));
  return job;
}

std::optional<JobResult> DeskControl::WaitForJob(int job, std::chrono::milliseconds limit) {
  if (!WaitUntil([&] { return jobs.contains(job); }, limit)) return std::nullopt;
  const std::lock_guard hold(lock);
  return jobs[job];
}

std::optional<Port> DeskControl::WaitForPort(std::u16string_view name,
                                             std::chrono::milliseconds limit) {
  std::optional<Port> found;
  WaitUntil(
      [&] {
        for (const Port& port : ports) {
          if (port.open && port.name == name) found = port;
        }
        return found.has_value();
      },
      limit);
  return found;
}

bool DeskControl::WaitForPortClosed(int portId, std::chrono::milliseconds limit) {
  return WaitUntil(
      [&] {
        return std::any_of(ports.begin(), ports.end(),
                           [portId](const Port& port) { return port.id == portId && !port.open; });
      },
      limit);
}

std::vector<Port> DeskControl::Ports() {
  Settle();
  const std::lock_guard hold(lock);
  return ports;
}

void DeskControl::OccupyPortName(std::u16string_view name, bool taken) {
  Send("port-occupy " + HexOfUtf16(name) + (taken ? " taken=1" : " taken=0"));
}

std::vector<Recorded> DeskControl::OutputMessages(int outputId) {
  Settle();
  const std::lock_guard hold(lock);
  return ValueOf(outputMessages, outputId);
}

std::vector<Recorded> DeskControl::PortMessages(int portId) {
  Settle();
  const std::lock_guard hold(lock);
  return ValueOf(portMessages, portId);
}

bool DeskControl::WaitForOutputMessages(int outputId, std::size_t count,
                                        std::chrono::milliseconds limit) {
  return WaitUntil([&] { return SizeOf(outputMessages, outputId) >= count; }, limit);
}

bool DeskControl::WaitForPortMessages(int portId, std::size_t count,
                                      std::chrono::milliseconds limit) {
  return WaitUntil([&] { return SizeOf(portMessages, portId) >= count; }, limit);
}

std::size_t DeskControl::OutputMessageCount(int outputId) {
  const std::lock_guard hold(lock);
  return SizeOf(outputMessages, outputId);
}

std::size_t DeskControl::PortMessageCount(int portId) {
  const std::lock_guard hold(lock);
  return SizeOf(portMessages, portId);
}

std::vector<std::int64_t> DeskControl::InputStamps(int inputId) {
  Settle();
  const std::lock_guard hold(lock);
  return ValueOf(inputStamps, inputId);
}

std::vector<std::int64_t> DeskControl::PortStamps(int portId) {
  Settle();
  const std::lock_guard hold(lock);
  return ValueOf(portStamps, portId);
}

void DeskControl::ForgetRecorded() {
  const std::lock_guard hold(lock);
  outputMessages.clear();
  portMessages.clear();
  inputStamps.clear();
  portStamps.clear();
}

void DeskControl::SetStreaming(bool on) { Send(on ? "streaming 1" : "streaming 0"); }

bool DeskControl::WaitForHeld(const std::string& function, std::chrono::milliseconds limit) {
  return WaitUntil([&] { return held.contains(function); }, limit);
}

std::vector<std::string> DeskControl::Violations() {
  Settle();
  const std::lock_guard hold(lock);
  return violations;
}

ProcessCounts DeskControl::Counts() {
  const std::string answer = Send("counts");
  const auto words = Words(answer);
  ProcessCounts counts;
  if (words.size() < 10) return counts;
  const auto number = [&words](std::size_t i) {
    return static_cast<std::uint32_t>(ToNumber(words[i]));
  };
  counts.handles = number(0);
  counts.sockets = number(1);
  counts.threads = number(2);
  counts.workingSet = static_cast<std::uint64_t>(ToNumber(words[3]));
  counts.openInputs = number(4);
  counts.openOutputs = number(5);
  counts.openPorts = number(6);
  counts.violations = static_cast<std::uint64_t>(ToNumber(words[7]));
  counts.heapBytes = static_cast<std::uint64_t>(ToNumber(words[8]));
  counts.deskHeapBytes = static_cast<std::uint64_t>(ToNumber(words[9]));
  return counts;
}

std::int64_t DeskControl::Ping() { return ToNumber(Send("ping")); }

std::uint32_t DeskControl::AnsiCodePage() {
  const std::string answer = Send("about");
  return static_cast<std::uint32_t>(ToNumber(Words(answer).at(1)));
}

bool DeskControl::WaitForEvent(const std::function<bool(const std::string&)>& matches,
                               std::chrono::milliseconds limit) {
  return WaitUntil([&] { return std::any_of(events.begin(), events.end(), matches); }, limit);
}

std::vector<std::string> DeskControl::Events() {
  Settle();
  const std::lock_guard hold(lock);
  return events;
}

}  // namespace corvalint::harness
