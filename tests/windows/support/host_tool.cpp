#include "windows/support/host_tool.h"

#include <sstream>
#include <stdexcept>
#include <utility>

namespace corvalint::windows_test {

namespace {

// The doctor may wait for several things in turn.
constexpr std::chrono::milliseconds kLongestRun{60000};

}  // namespace

HostTool::HostTool(const std::vector<std::string>& arguments, harness::DeskOptions options,
                   const std::function<void(harness::DeskControl&)>& layOut) {
  options.arguments = arguments;
  options.open = false;
  desk = std::make_unique<harness::Desk>(options);
  if (!options.winmm && !options.supportKey) return;
  if (layOut) layOut(Control());
  Control().Open();
}

bool HostTool::WaitForOutput(const std::string& text) {
  return GetProcess().WaitForOutput(
      [&text](const std::string& all) { return all.find(text) != std::string::npos; }, kPatience);
}

Ended HostTool::End() {
  const std::optional<int> code = GetProcess().WaitForExit(kLongestRun);
  if (!code) throw std::runtime_error("the host does not end: " + GetProcess().Output());
  return {*code, WithLineFeeds(GetProcess().Output()), WithLineFeeds(GetProcess().Errors())};
}

harness::DeskOptions WithoutDesk() {
  harness::DeskOptions options;
  options.winmm = options.virtualMidi = false;
  options.supportKey = options.deviceKey = false;
  return options;
}

std::string WithLineFeeds(const std::string& text) {
  std::string result;
  for (const char letter : text) {
    if (letter != '\r') result += letter;
  }
  return result;
}

std::vector<harness::Json> DocumentsOf(const std::string& out) {
  std::vector<harness::Json> documents;
  std::istringstream lines(out);
  for (std::string line; std::getline(lines, line);) {
    documents.push_back(harness::Json::parse(line));
  }
  return documents;
}

}  // namespace corvalint::windows_test
