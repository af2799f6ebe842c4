#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>

#include "clients/usb_server.h"
#include "ports/external_midi_manager.h"
#include "ports/local_osc_port_table.h"
#include "protocol/clock_alignment.h"
#include "protocol/device_midi.h"
#include "protocol/device_stream.h"
#include "protocol/midi_routes.h"
#include "protocol/osc_arguments.h"
#include "protocol/osc_listener.h"
#include "service/cthread.h"

namespace corvalint {

// The conversation with one device: connects, receives frames, dispatches the OSC messages in them,
// and sends frames for everybody else. How the stream is opened and how the object ends is the
// subclass's business. docs/wire-format.md describes frames and messages.
class BaseClientThread : public CThread,
                         public OscListener,
                         public DeviceClient,
                         public LocalOSCPortDelegate {
 public:
  // `usbServer` and `manager` must live until the process ends.
  BaseClientThread(UsbServer& usbServer, ExternalMidiManager& manager);

  // The thread's body: frame after frame, reconnecting by itself, until `running` is cleared.
  std::uint32_t Run() override;

  // A "/midi" by itself, which is nearly everything that comes, takes a shorter way.
  void ProcessPacket(const char* data, std::size_t size, const RemoteEndpoint& endpoint) override;

  int SendFramed(const void* data, std::uint32_t size) override;
  int SendFrame(const Frame& frame) override;
  void SendPacket(const void* data, std::uint64_t size) override;
  bool IsCrowded() override { return stream.IsCrowded(); }
  EndpointOwner& Owner() override { return midiManager; }

  const ClockAlignment& Clock() const { return clock; }
  // What every packet of the device is said to come from.
  const RemoteEndpoint& Endpoint() const { return remoteEndpoint; }

 protected:
  // Waits until `disconnected` is 1, so that a disconnect in progress can end, then releases the
  // loopback OSC ports.
  ~BaseClientThread() override;

  // Closes the stream, if it is open. Any thread, holding no lock.
  virtual void PerformDisconnect() {}
  // True when the stream is open, opening it if need be. The client's own thread.
  virtual bool Connect() { return false; }
  // What `Run` ends with; the object may be gone when it returns.
  virtual std::uint32_t Finalize();

  // Takes over a connected, non-blocking socket. The client's own thread.
  void OpenStream(int connectedSocket);

  void BundleStarted(const osc::ReceivedBundle& bundle) override;
  void ProcessMessage(const osc::ReceivedMessage& message, const RemoteEndpoint& endpoint) override;
  void BundleFinished(const osc::ReceivedBundle& bundle) override;

  UsbServer& server;
  ExternalMidiManager& midiManager;
  DeviceStream stream;
  RemoteEndpoint remoteEndpoint;
  // Null once released. A subclass that may be destroyed while ports are open releases it before:
  // its ports call this object.
  std::unique_ptr<LocalOSCPortTable> localPorts;
  // 1 while nothing is left to be closed, 0 while a stop is in progress. A fresh object has nothing
  // open.
  std::atomic<std::int32_t> disconnected{1};

 private:
  void ReceiveFrame();
  bool ReadWord(std::uint32_t& word);
  const char* Read(std::size_t count);
  bool Gather(std::size_t count);
  int ReceiveMore(std::size_t count);
  void MakeRoom(std::size_t count);
  void ParsePacket(const char* packet, std::uint32_t length);
  static void PrintParsingError(const std::exception& failure);

  void Dispatch(const osc::ReceivedMessage& message, std::int64_t now);
  bool OscPortMessage(const osc::ReceivedMessage& message, OscArguments& arguments);
  void CreateOscPort(OscArguments& arguments);
  void RemoveOscPort(OscArguments& arguments);
  void NoteOscPortReport(OscArguments& arguments);
  void SendThroughOscPort(OscArguments& arguments);
  void MidiFromDevice(OscArguments& arguments);
  void SendOn(const DeviceMidi& midi);
  void InitTiming(OscArguments& arguments);
  void UpdateTiming(OscArguments& arguments, std::int64_t now);
  void AddRemoteSource(OscArguments& arguments);
  void AddRemoteDestination(OscArguments& arguments);
  void RemoveRemoteSource(OscArguments& arguments);
  void RemoveRemoteDestination(OscArguments& arguments);

  // All of these belong to the client's own thread.
  ClockAlignment clock;
  MidiRoutes routes;
  // What was received and not read yet lies between the two marks; packets are read where they lie.
  const std::unique_ptr<char[]> received;
  std::size_t receivedBegin = 0;
  std::size_t receivedEnd = 0;
};

}  // namespace corvalint
