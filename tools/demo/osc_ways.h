#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "demo/device_osc_port.h"
#include "demo/osc_dump.h"
#include "demo/send_window.h"
#include "demo/udp_socket.h"
#include "demo/ways.h"

namespace corvalint::demo {

// The music told in OSC messages, one datagram each, through the port that the iPad has opened. A
// window paces the sending: datagrams wait for nobody, and no more are under way than surely fit
// into the receivers' buffers.
class OscWay : public Way {
 public:
  void Clear() override;
  void Send(const harness::Bytes& message) override;
  void SendAll(const device::Song& song, std::size_t rounds,
               const std::function<void()>& tick) override;
  std::size_t SentCount() override { return sent.size(); }
  std::vector<harness::Recorded> Sent() override { return sent; }

 protected:
  // Sends the message, of which these are the bytes.
  virtual void Transmit(const device::OscMessage& message, const harness::Bytes& packet) = 0;
  // Nothing is under way; what has arrived is to be forgotten.
  virtual void ForgetReceived() = 0;

 private:
  std::vector<harness::Recorded> sent;
  SendWindow window;
};

// The iPad sends, oscdump prints.
class OscFromDeviceWay : public OscWay {
 public:
  OscFromDeviceWay(Scenario& stage, DeviceOscPort& throughPort, OscDump& printer)
      : scenario(stage), port(throughPort), dump(printer) {}

  std::string Title() const override;
  std::vector<std::string> Receivers() const override;
  void Settle() override;
  std::size_t ReceivedCount(std::size_t receiver) override;
  std::vector<harness::Recorded> Received(std::size_t receiver) override;

 protected:
  void Transmit(const device::OscMessage& message, const harness::Bytes& packet) override;
  void ForgetReceived() override { dump.Forget(); }

 private:
  Scenario& scenario;
  DeviceOscPort& port;
  OscDump& dump;
};

// A socket of the demo sends, which knows when each datagram leaves; the iPad receives.
class OscToDeviceWay : public OscWay {
 public:
  OscToDeviceWay(Scenario& stage, DeviceOscPort& throughPort)
      : scenario(stage), port(throughPort) {}

  std::string Title() const override;
  std::vector<std::string> Receivers() const override;
  void Settle() override;
  std::size_t ReceivedCount(std::size_t receiver) override;
  std::vector<harness::Recorded> Received(std::size_t receiver) override;

 protected:
  void Transmit(const device::OscMessage& message, const harness::Bytes& packet) override;
  void ForgetReceived() override;

  Scenario& scenario;
  DeviceOscPort& port;

 private:
  UdpSocket socket;
  std::int32_t marks = 0;            // sent by Settle
  std::uint64_t receivedBefore = 0;  // by the iPad, when what it had received was forgotten
};

// oscsend sends, a process for each message; the iPad receives. Nobody but oscsend knows when its
// datagram leaves, so there are no times.
class OscSendWay : public OscToDeviceWay {
 public:
  using OscToDeviceWay::OscToDeviceWay;

  std::string Title() const override;
  std::vector<std::string> Receivers() const override;
  bool KnowsTimes() const override { return false; }

 protected:
  void Transmit(const device::OscMessage& message, const harness::Bytes& packet) override;
};

}  // namespace corvalint::demo
