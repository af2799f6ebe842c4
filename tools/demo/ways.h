#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "demo/scenario.h"
#include "device/song.h"
#include "harness/desk_types.h"

namespace corvalint::demo {

// A way that music takes through the DLL, from one sender to one or more receivers. All times are
// of CLOCK_MONOTONIC_RAW in nanoseconds. Operations throw std::runtime_error when a side is gone.
class Way {
 public:
  virtual ~Way() = default;

  // "iPad to the Windows output Synthesizer".
  virtual std::string Title() const = 0;
  // How each receiver's row of the table is named.
  virtual std::vector<std::string> Receivers() const = 0;

  // Whether Sent() gives the moment at which each message really left.
  virtual bool KnowsTimes() const { return true; }

  // Forgets what was sent and received so far; nothing is under way when this returns.
  virtual void Clear() = 0;
  // Sends one message now.
  virtual void Send(const harness::Bytes& message) = 0;
  // Sends the song's events so many times as fast as the library takes them. Calls `tick` now and
  // then. When it returns, all have been sent.
  virtual void SendAll(const device::Song& song, std::size_t rounds,
                       const std::function<void()>& tick) = 0;
  // Returns when nothing is under way any more, so that nothing can arrive that has not.
  virtual void Settle() = 0;

  // So far, cheap enough to ask some times a second.
  virtual std::size_t SentCount() = 0;
  virtual std::size_t ReceivedCount(std::size_t receiver) = 0;
  // In order, with the time of sending and of arrival.
  virtual std::vector<harness::Recorded> Sent() = 0;
  virtual std::vector<harness::Recorded> Received(std::size_t receiver) = 0;
};

// The iPad plays to an endpoint and the desk records what comes out of the DLL. The sending is
// paced by the stream: the next message is handed over when the kernel has taken the one before.
class DeviceWay : public Way {
 public:
  enum class Sink { kOutput, kPort };  // the Windows output, or the port that the iPad publishes

  DeviceWay(Scenario& stage, Sink where);

  std::string Title() const override;
  std::vector<std::string> Receivers() const override;
  void Clear() override;
  void Send(const harness::Bytes& message) override;
  void SendAll(const device::Song& song, std::size_t rounds,
               const std::function<void()>& tick) override;
  void Settle() override;
  std::size_t SentCount() override { return sent.size(); }
  std::size_t ReceivedCount(std::size_t receiver) override;
  std::vector<harness::Recorded> Sent() override { return sent; }
  std::vector<harness::Recorded> Received(std::size_t receiver) override;

 private:
  Scenario& scenario;
  const Sink sink;
  const std::string name;
  const std::int32_t id;
  std::vector<harness::Recorded> sent;
};

// The keyboard at the desk plays and both devices record. The desk's driver paces the sending: it
// delivers the next message when the DLL's callback has returned from the one before.
class InputWay : public Way {
 public:
  explicit InputWay(Scenario& stage) : scenario(stage) {}

  std::string Title() const override;
  std::vector<std::string> Receivers() const override;
  void Clear() override;
  void Send(const harness::Bytes& message) override;
  void SendAll(const device::Song& song, std::size_t rounds,
               const std::function<void()>& tick) override;
  void Settle() override;
  std::size_t SentCount() override;
  std::size_t ReceivedCount(std::size_t receiver) override;
  std::vector<harness::Recorded> Sent() override;
  std::vector<harness::Recorded> Received(std::size_t receiver) override;

 private:
  NamedDevice& Receiver(std::size_t receiver);
  void AwaitJob(const std::function<void()>& tick);

  Scenario& scenario;
  std::vector<harness::Bytes> messages;     // that were given to the desk's driver
  int job = 0;                              // the last one of the driver; 0: none
  std::vector<std::uint64_t> countsBefore;  // what each device had received at Clear()
};

}  // namespace corvalint::demo
