#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "harness/control_server.h"
#include "harness/desk_types.h"

namespace corvalint::harness {

// The simulated desk inside the product's process, as typed calls. All operations may be called
// from any thread. Unless said otherwise an operation throws std::runtime_error when the desk
// refuses it or is gone, and Wait... operations answer false (or nothing) when time is up.
class DeskControl {
 public:
  DeskControl();

  // Where the desk is to connect to.
  std::uint16_t ControlPort() const { return server.Port(); }
  bool WaitUntilConnected(std::chrono::milliseconds limit = kPatience);

  // Until this is called, every call of the product into a stand-in waits (30 seconds at most), so
  // that a test can lay out the desk first.
  void Open();

  // MIDI devices. Names are bytes in code page 1252. Answers are the desk's own numbers.
  int AddInput(std::string_view name, int position = -1);
  int AddOutput(std::string_view name, int position = -1);
  // Unplugs; `result` is what calls on open handles answer from then on (0: they work).
  void RemoveInput(int id, std::int64_t result = 0);
  void RemoveOutput(int id, std::int64_t result = 0);
  bool WaitForInputStarted(int id, std::chrono::milliseconds limit = kPatience);
  bool WaitForInputClosed(int id, std::chrono::milliseconds limit = kPatience);
  bool WaitForOutputOpen(int id, std::chrono::milliseconds limit = kPatience);
  bool WaitForOutputClosed(int id, std::chrono::milliseconds limit = kPatience);
  // Long messages keep their buffer for this time, or until it is no longer stuck.
  void SetPlayTime(int outputId, std::int64_t ns);
  void SetStuck(int outputId, bool stuck);

  // Input from a driver thread of the device's own. The answer names the job.
  int Inject(int inputId, const std::vector<InputItem>& items, const Pacing& pacing = {});
  // Data that an application writes into a virtual port, from the driver's callback thread.
  int Play(int portId, const std::vector<Bytes>& messages, const Pacing& pacing = {});
  std::optional<JobResult> WaitForJob(int job, std::chrono::milliseconds limit = kPatience);

  // Virtual ports.
  std::optional<Port> WaitForPort(std::u16string_view name,
                                  std::chrono::milliseconds limit = kPatience);
  bool WaitForPortClosed(int portId, std::chrono::milliseconds limit = kPatience);
  std::vector<Port> Ports();  // all that ever were, in order of their making
  void OccupyPortName(std::u16string_view name, bool taken = true);

  // What the product sent, in order. Without streaming only the desk's own counts go on.
  std::vector<Recorded> OutputMessages(int outputId);
  std::vector<Recorded> PortMessages(int portId);
  bool WaitForOutputMessages(int outputId, std::size_t count,
                             std::chrono::milliseconds limit = kPatience);
  bool WaitForPortMessages(int portId, std::size_t count,
                           std::chrono::milliseconds limit = kPatience);
  std::size_t OutputMessageCount(int outputId);
  std::size_t PortMessageCount(int portId);
  // When messages were given to the product; see Pacing::stamps.
  std::vector<std::int64_t> InputStamps(int inputId);
  std::vector<std::int64_t> PortStamps(int portId);
  void ForgetRecorded();
  void SetStreaming(bool on);

  // iOS devices; `key` is the test's name for one. Its record stays the same over all connections
  // unless a fresh one is asked for. Attaching and detaching return when it is queued; the
  // callbacks come one at a time on a thread of the desk.
  void SetDevice(const std::string& key, const DeviceSetup& setup);
  void Attach(const std::string& key, bool freshRecord = false);
  void Detach(const std::string& key);
  void Notify(const std::string& key, std::uint32_t kind);  // "null": without a device
  void Restore(const std::string& which);  // dfu-connect, recovery-disconnect and so on
  // Waits until the callback of the last of these commands has returned.
  bool WaitForNotifications(std::chrono::milliseconds limit = kPatience);

  // Calls into the stand-ins, by the names of the real functions.
  void Fail(const std::string& function, std::int64_t result, const CallRange& range = {});
  void Delay(const std::string& function, std::uint32_t ms, const CallRange& range = {});
  void ClearRules(const std::string& function);
  void Hold(const std::string& function);
  void Release(const std::string& function);
  bool WaitForHeld(const std::string& function, std::chrono::milliseconds limit = kPatience);
  std::vector<CallEntry> Calls();
  std::vector<std::string> CallNames();
  std::map<std::string, std::uint64_t> CallCounts();
  bool WaitForCall(const std::string& function, std::uint64_t count = 1,
                   std::chrono::milliseconds limit = kPatience);
  void ClearCalls();
  void Mute(const std::string& function);  // counted, not listed

  // Things done that no caller of the real libraries may do. A test ends by finding none.
  std::vector<std::string> Violations();

  ProcessCounts Counts();
  std::int64_t Ping();  // the product's performance counter in nanoseconds
  std::uint32_t AnsiCodePage();
  std::string Send(const std::string& command) { return server.Send(command); }

  // Waits for an event line (without "! "), looking at past ones as well.
  bool WaitForEvent(const std::function<bool(const std::string&)>& matches,
                    std::chrono::milliseconds limit = kPatience);
  std::vector<std::string> Events();

 private:
  void TakeLine(std::string_view line);
  void TakeEvent(std::string_view text);
  void TakeRecorded(char kind, std::string_view rest);
  template <typename Condition>
  bool WaitUntil(Condition condition, std::chrono::milliseconds limit) {
    std::unique_lock hold(lock);
    return changed.wait_for(hold, limit, condition);
  }
  void Settle();
  int NextJob();

  std::mutex lock;
  std::condition_variable changed;
  std::map<int, std::vector<Recorded>> outputMessages;
  std::map<int, std::vector<Recorded>> portMessages;
  std::map<int, std::vector<std::int64_t>> inputStamps;
  std::map<int, std::vector<std::int64_t>> portStamps;
  std::map<int, std::string> inputStates;
  std::map<int, std::string> outputStates;
  std::map<int, JobResult> jobs;
  std::vector<Port> ports;
  std::vector<std::string> violations;
  std::vector<std::string> events;
  std::map<std::string, std::uint64_t> held;
  std::uint64_t notificationsAsked = 0;
  std::uint64_t notificationsDone = 0;
  int lastJob = 0;
  ControlServer server;  // last: its thread uses what stands above
};

}  // namespace corvalint::harness
