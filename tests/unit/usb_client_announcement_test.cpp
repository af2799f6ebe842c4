// What a device is told when its stream opens.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/recording_client.h"
#include "support/usb_client_fixture.h"

namespace corvalint {
namespace {

using namespace test;

class UsbClientAnnouncementTest : public UsbClientFixture {};

TEST_F(UsbClientAnnouncementTest, OpenDesktopEndpointsAreAnnouncedFromTheLastToTheFirst) {
  AddSource("Keys", 1);
  AddSource("switched off", 2, false, true);
  AddSource("not open", 3, true, false);
  AddSource("Pads", -4);
  AddDestination("Synth", 5);
  AddDestination("switched off", 6, false, true);
  AddDestination("not open", 7, true, false);
  AddDestination("Drums", -8);
  const auto peer = StartThread();
  ExpectAnnounced(*peer, {EndpointMessage("/add_remote_source", "Pads", -4),
                          EndpointMessage("/add_remote_source", "Keys", 1),
                          EndpointMessage("/add_remote_destination", "Drums", -8),
                          EndpointMessage("/add_remote_destination", "Synth", 5)});
  Depart();
}

TEST_F(UsbClientAnnouncementTest, EndpointsOfOtherDevicesAreAnnouncedAndNotItsOwn) {
  ExternalMidiManager otherManager(server, server.Lock(), names);
  otherManager.SetDeviceKey("phone");
  otherManager.AddRemoteSource("Piano", 1);
  otherManager.AddRemoteDestination("Piano", 2);
  otherManager.AddRemoteDestination("Strings", 3);
  manager.SetDeviceKey("pad");
  manager.AddRemoteSource("its own", 9);
  RecordingClient phone(otherManager);
  RecordingClient third;
  third.scripted.published = {{EndpointKind::source, "Flute", 4}};
  server.clients.Append(phone);
  server.clients.Append(third);
  AddSource("Keys", 5);

  // The announcements that the managers above made went to the client that had no stream yet.
  const auto peer = StartThread();
  ExpectAnnounced(*peer, {EndpointMessage("/add_remote_source", "Keys", 5),
                          EndpointMessage("/add_remote_destination", "Strings", 3),
                          EndpointMessage("/add_remote_destination", "Piano", 2),
                          EndpointMessage("/add_remote_source", "Piano", 1),
                          EndpointMessage("/add_remote_source", "Flute", 4)});
  Depart();
  threads.JoinAll();
  server.clients.Remove(phone);
  server.clients.Remove(third);
}

// A toggle waits, so nothing that was switched off is announced after its end.
TEST_F(UsbClientAnnouncementTest, TheDesktopStandsStillMeanwhile) {
  AddSource("Keys", 1);
  AddDestination("Synth", 2);
  std::vector<std::uint32_t> holds;
  sockets.BeforeSend(
      [&] { holds.push_back(GetMidiEndpointRegistry().deviceLock.HoldsOfThisThread()); });
  const auto peer = StartThread();
  EXPECT_EQ(peer->ReceiveFrame(), EndpointMessage("/add_remote_source", "Keys", 1));
  EXPECT_EQ(peer->ReceiveFrame(), EndpointMessage("/add_remote_destination", "Synth", 2));
  Depart();
  threads.JoinAll();
  EXPECT_EQ(holds, (std::vector<std::uint32_t>{1, 1}));
}

// What appears from then on reaches the device in any case.
TEST_F(UsbClientAnnouncementTest, TheStreamIsOpenToSendersBeforeAnybodyIsAsked) {
  RecordingClient phone;
  phone.scripted.published = {{EndpointKind::source, "Piano", 1}};
  int sent = -1;
  std::uint32_t clientHolds = 9, portHolds = 9;
  phone.scripted.whenListed = [&] {
    sent = client->SendFramed("meanwhile", 9);
    clientHolds = server.clientLock.HoldsOfThisThread();
    portHolds = server.Lock().HoldsOfThisThread();
  };
  server.clients.Append(phone);
  const auto peer = StartThread();
  ExpectAnnounced(*peer, {"meanwhile", EndpointMessage("/add_remote_source", "Piano", 1)});
  EXPECT_EQ(sent, 21);
  EXPECT_EQ(clientHolds, 1u);
  EXPECT_EQ(portHolds, 0u);
  Depart();
  threads.JoinAll();
  server.clients.Remove(phone);
}

TEST_F(UsbClientAnnouncementTest, ANameThatFitsNoPacketCostsItsOwnAnnouncementOnly) {
  RecordingClient phone;
  phone.scripted.published = {{EndpointKind::source, "Piano", 1},
                              {EndpointKind::destination, std::string(4064, 'n'), 2},
                              {EndpointKind::source, std::string(4067, 'n'), 3}};
  server.clients.Append(phone);
  const auto peer = StartThread();
  ExpectAnnounced(*peer, {EndpointMessage("/add_remote_source", "Piano", 1),
                          EndpointMessage("/add_remote_source", std::string(4067, 'n'), 3)});
  EXPECT_EQ(log.Count("DEBUG endpoints with names too long to announce: 1"), 1);
  peer->EndSending();  // the next stream counts anew
  const auto second = library.NextStream(device);
  ExpectAnnounced(*second, {EndpointMessage("/add_remote_source", "Piano", 1),
                            EndpointMessage("/add_remote_source", std::string(4067, 'n'), 3)});
  EXPECT_EQ(log.Count("DEBUG endpoints with names too long to announce: 1"), 2);
  Depart();
  threads.JoinAll();
  server.clients.Remove(phone);
}

}  // namespace
}  // namespace corvalint
