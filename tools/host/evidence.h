#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvalint::host {

// What the library has written about devices since it was started.
struct Evidence {
  std::optional<std::uint32_t> subscribed;     // the device library's answer to the subscription
  std::vector<std::string> devices;            // identifiers of the devices that are attached now
  std::optional<std::uint32_t> connectResult;  // the last device's answer to the connection
  bool streamOpened = false;                   // an app has taken a stream
  std::optional<std::uint32_t> streamResult;   // the answer of a device whose app took none
  std::vector<std::string> announced;  // endpoints that apps have announced and not withdrawn
};

// What the library prints on the console about devices, taken in as it comes.
class ConsoleReader {
 public:
  // The next piece, which may end anywhere.
  void Take(std::string_view text);

  // Identifiers of the devices that are attached, and endpoints such as `source "App"` that apps
  // have announced and not withdrawn. Those of a device that has left stay, as its ports do.
  const std::vector<std::string>& Devices() const { return devices; }
  const std::vector<std::string>& Announced() const { return announced; }

 private:
  void TakeLine(std::string_view line);

  std::string unfinished;  // the line that has no end yet
  std::vector<std::string> devices;
  std::vector<std::string> announced;
};

// From the lines of the log and of the console, which may be cut anywhere.
Evidence ReadEvidence(std::string_view log, std::string_view console);

// The answer of the device library that lets a device be used.
bool IsUsableConnection(std::uint32_t connectResult);

}  // namespace corvalint::host
