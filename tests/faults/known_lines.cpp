#include "known_lines.h"

#include <fnmatch.h>

#include <algorithm>
#include <sstream>
#include <vector>

namespace corvalint::faults {

namespace {

// Standard output, as shell patterns.
constexpr const char* kUsualPrinted[] = {
    "",
    "notification(?)",
    "Device connected: *",
    "Device disconnected: *",
    "Device created",
    "Connecting to device...",
    "AMDeviceConnect() = 0x0",
    "UsbClientThread::PerformDisconnect()",
    "Server disconnected: 0",
    "Server disconnected: -1",
    "Finished",
    "receiving add_remote_source: * || *",
    "receiving add_remote_destination: * || *",
    "receiving remove_remote_source: * || *",
    "receiving remove_remote_destination: * || *",
    "sending /add_remote_source: * || * ",
    "sending /add_remote_destination: * || * ",
    "sending /remove_remote_source: * || * ",
    "sending /remove_remote_destination: * || * ",
    "sending remove_remote_source with unique_id: * || *",
    "sending remove_remote_destination with unique_id: * || *",
    "NOT a virtual source: *",
    "found source with unique_id: * || *",
    "found destination with unique_id: * || *",
    "source added *",
    "destination added *",
};

// The log, without time and thread.
constexpr const char* kUsualLogged[] = {
    "",
    "INFO LoadUsbLibraries",
    "INFO iTunesMobileDeviceDLL: *",
    "INFO Subscribed for notifications: *",
    "INFO notification(?)",
    "INFO Device connected: *",
    "INFO Device disconnected: *",
    "INFO USBMuxConnectByPort OK",
    "INFO Bundle started 1",
    "INFO Bundle finished 1",
    "DEBUG BaseClientThread created",
    "DEBUG UsbClientThread()",
    "DEBUG Connecting to device...",
    "DEBUG AMDeviceConnect() = 0x0",
    "DEBUG Device handle=*",
    "DEBUG Opening port...",
    "DEBUG UsbClientThread::PerformDisconnect()",
    "DEBUG UsbClientThreadMidi::Stop()",
    "DEBUG UsbClientThread::Finalize()",
    "DEBUG Finished",
    "DEBUG ~UsbClientThread",
    "DEBUG ~BaseClientThread",
};

// What only a fault is a reason for: a line, and the tables whose failures are.
struct FaultLine {
  const char* pattern;
  TableSet causes;
};
constexpr FaultLine kFaultPrinted[] = {
    {"Error parsing message: std::bad_alloc", SetOf(Table::allocation)},
    {"BUG: log not initialized!*", SetOf(Table::allocation)},
    {"AMDeviceConnect() = 0xe8000012", SetOf(Table::mobileDevice)},
    {"AMDeviceConnect = -402653166", SetOf(Table::mobileDevice)},
    {"could not create _mutex", SetOf(Table::mutexes)},
    {"error creating socket || error: -1", SetOf(Table::datagrams)},
    {"error creating socket || error: 0", SetOf(Table::sockets)},
    {"sendto() failed", SetOf(Table::datagrams, Table::sockets, Table::threads, Table::allocation)},
    {"MMSYSERR_NOMEM", SetOf(Table::winMidi)},
    // Also what an output answers that could not be switched on.
    {"MMSYSERR_INVALHANDLE", SetOf(Table::winMidi, Table::allocation)},
};
constexpr FaultLine kFaultLogged[] = {
    {"ERROR * not read to its end: std::bad_alloc", SetOf(Table::allocation)},
    {"ERROR service not started: std::bad_alloc", SetOf(Table::allocation)},
    {"ERROR device connection failed: std::bad_alloc", SetOf(Table::allocation)},
    {"ERROR device notification failed: std::bad_alloc", SetOf(Table::allocation)},
    {"ERROR endpoint not switched: std::bad_alloc", SetOf(Table::allocation)},
    {"ERROR thread ended by an exception: std::bad_alloc", SetOf(Table::allocation)},
    {"ERROR OSC port * ended: std::bad_alloc", SetOf(Table::allocation)},
    {"ERROR OSC port *: no free number, it neither hears nor sends", SetOf(Table::datagrams)},
    {"ERROR MIDI from a published port dropped: std::bad_alloc", SetOf(Table::allocation)},
    {"ERROR MIDI input dropped: std::bad_alloc", SetOf(Table::allocation)},
    {"ERROR vanished MIDI ?*put: std::bad_alloc", SetOf(Table::allocation)},
    {"ERROR MIDI scan failed: std::bad_alloc", SetOf(Table::allocation)},
    {"ERROR thread could not be started", SetOf(Table::threads, Table::allocation)},
    {"ERROR Could not locate '*' folder path in 32 ?it registry", SetOf(Table::registry)},
    {"ERROR Could not locate '*' folder path in registry: ABORTING", SetOf(Table::registry)},
    {"ERROR Could not load * from '*'", SetOf(Table::libraries)},
    {"ERROR Couldn't locate *", SetOf(Table::libraries)},
    {"ERROR AMDeviceNotificationSubscribe = *", SetOf(Table::mobileDevice)},
    {"DEBUG AMDeviceConnect() = 0xe8000012", SetOf(Table::mobileDevice)},
    {"ERROR AMDeviceConnect = -402653166", SetOf(Table::mobileDevice)},
    {"ERROR USBMuxConnectByPort = e8000013, handle=beef", SetOf(Table::mobileDevice)},
    {"ERROR the stream to the device would block", SetOf(Table::sockets)},
    {"ERROR MIDI output keeps its data: *", SetOf(Table::winMidi)},
    {"ERROR MIDI input could not be closed: *", SetOf(Table::winMidi)},
};

// What must be told when a function fails.
struct Duty {
  const char* function;
  const char* pattern;
  bool logged;
};
constexpr Duty kDuties[] = {
    {"create", "ERROR thread could not be started", true},
    {"amDeviceNotificationSubscribe", "ERROR AMDeviceNotificationSubscribe = -402653183", true},
    {"amDeviceNotificationSubscribe", "INFO Subscribed for notifications: 3892314113", true},
    {"amDeviceConnect", "ERROR AMDeviceConnect = -402653166", true},
    {"amDeviceConnect", "AMDeviceConnect = -402653166", false},
    {"amDeviceGetConnectionId", "DEBUG Device handle=0", true},
    {"setNonBlocking", "ERROR the stream to the device would block", true},
    {"usbMuxConnectByPort", "ERROR USBMuxConnectByPort = e8000013, handle=beef", true},
    {"open datagram socket", "error creating socket || error: -1", false},
    {"send datagram", "sendto() failed", false},
    {"load", "ERROR Could*", true},
    {"read value", "ERROR Could not locate '*' folder path in registry: ABORTING", true},
    {"open key", "ERROR Could not locate '*' folder path in registry: ABORTING", true},
    {"midiOutPrepareHeader", "MMSYSERR_NOMEM", false},
    {"midiOutLongMsg", "MMSYSERR_INVALHANDLE", false},
};

bool Matches(const char* pattern, const std::string& line) {
  return fnmatch(pattern, line.c_str(), 0) == 0;
}

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

// Status questions print a word without a line end.
std::vector<std::string> PrintedLines(const std::string& printed) {
  std::vector<std::string> lines = LinesOf(printed);
  for (std::string& line : lines) {
    for (;;) {
      if (line.rfind("true", 0) == 0) {
        line.erase(0, 4);
      } else if (line.rfind("false", 0) == 0) {
        line.erase(0, 5);
      } else {
        break;
      }
    }
  }
  return lines;
}

std::vector<std::string> LoggedLines(const std::string& logged) {
  std::vector<std::string> lines = LinesOf(logged);
  for (std::string& line : lines) {
    const std::size_t thread = line.find("] ");
    if (thread != std::string::npos) line.erase(0, thread + 2);
  }
  return lines;
}

template <class Usual, class Faulty>
std::string Unknown(const std::vector<std::string>& lines, const Usual& usual, const Faulty& faulty,
                    TableSet causes, const char* where) {
  std::string unknown;
  for (const std::string& line : lines) {
    const bool known =
        std::any_of(std::begin(usual), std::end(usual),
                    [&](const char* pattern) { return Matches(pattern, line); }) ||
        std::any_of(std::begin(faulty), std::end(faulty), [&](const FaultLine& fault) {
          return (fault.causes & causes) != 0 && Matches(fault.pattern, line);
        });
    if (!known) unknown += std::string("unexpected ") + where + ": " + line + "\n";
  }
  return unknown;
}

}  // namespace

std::string UnknownLines(const Report& report, const Plan& plan, const std::string& printed,
                         const std::string& logged) {
  const TableSet causes = report.failed > 0 ? SetOf(plan.table) : 0;
  return Unknown(PrintedLines(printed), kUsualPrinted, kFaultPrinted, causes, "line") +
         Unknown(LoggedLines(logged), kUsualLogged, kFaultLogged, causes, "log line");
}

std::string MissingLines(const Report& report, const std::string& printed,
                         const std::string& logged) {
  if (report.failed == 0) return {};
  const std::string function = report.function.data();
  std::string missing;
  for (const Duty& duty : kDuties) {
    if (function != duty.function) continue;
    const auto lines = duty.logged ? LoggedLines(logged) : PrintedLines(printed);
    const bool told = std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
      return Matches(duty.pattern, line);
    });
    if (!told) missing += std::string("missing line: ") + duty.pattern + "\n";
  }
  return missing;
}

}  // namespace corvalint::faults
