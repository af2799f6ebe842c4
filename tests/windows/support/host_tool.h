#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "harness/desk.h"
#include "windows/support/bridge.h"

// The console host as people start it: with a command line, until it ends.
namespace corvalint::windows_test {

// What a program left behind.
struct Ended {
  int exitCode = -1;
  std::string out;  // line ends as LF
  std::string err;
};

// The console host with these arguments at a desk. The desk opens once `layOut` has returned.
class HostTool {
 public:
  explicit HostTool(const std::vector<std::string>& arguments, harness::DeskOptions options = {},
                    const std::function<void(harness::DeskControl&)>& layOut = {});

  harness::Desk& GetDesk() { return *desk; }
  harness::DeskControl& Control() { return desk->Control(); }
  harness::Process& GetProcess() { return desk->GetHost().GetProcess(); }

  // Until it has printed that.
  bool WaitForOutput(const std::string& text);
  // Waits for its end; throws std::runtime_error when it does not come.
  Ended End();

 private:
  std::unique_ptr<harness::Desk> desk;
};

// A machine whose host never gets as far as the desk.
harness::DeskOptions WithoutDesk();

// The text with LF at the ends of its lines.
std::string WithLineFeeds(const std::string& text);

// The documents of --json: each line as an object. Throws when a line is none.
std::vector<harness::Json> DocumentsOf(const std::string& out);

}  // namespace corvalint::windows_test
