#include "protocol/osc_listener.h"

#include "protocol/packet_check.h"

namespace corvalint {

namespace {

// Refused here, since the OSC library counts sizes in signed 32 bits.
osc::osc_bundle_element_size_t CheckedSize(std::size_t size) {
  if (size == 0) throw osc::MalformedPacketException("zero length elements not permitted");
  if (size > osc::OSC_BUNDLE_ELEMENT_SIZE_MAX) {
    throw osc::MalformedPacketException("invalid packet size");
  }
  return static_cast<osc::osc_bundle_element_size_t>(size);
}

}  // namespace

void OscListener::ProcessPacket(const char* data, std::size_t size,
                                const RemoteEndpoint& endpoint) {
  const osc::ReceivedPacket packet(data, CheckedSize(size));
  if (packet.IsBundle()) {
    CheckBundle(data, size);
    ProcessBundle(osc::ReceivedBundle(packet), endpoint);
  } else {
    CheckMessage(data, size);
    ProcessMessage(osc::ReceivedMessage(packet), endpoint);
  }
}

void OscListener::ProcessBundle(const osc::ReceivedBundle& bundle, const RemoteEndpoint& endpoint) {
  open.clear();  // an earlier packet may have ended halfway
  Open(bundle);
  while (!open.empty()) {
    OpenBundle& innermost = open.back();
    if (innermost.next == innermost.bundle.ElementsEnd()) {
      BundleFinished(innermost.bundle);
      open.pop_back();
      continue;
    }
    const osc::ReceivedBundleElement element = *innermost.next++;
    if (element.Size() > 0 && element.IsBundle()) {
      CheckBundle(element.Contents(), static_cast<std::size_t>(element.Size()));
      Open(osc::ReceivedBundle(element));
    } else {
      CheckMessage(element.Contents(), static_cast<std::size_t>(element.Size()));
      ProcessMessage(osc::ReceivedMessage(element), endpoint);
    }
  }
}

void OscListener::Open(const osc::ReceivedBundle& bundle) {
  BundleStarted(bundle);
  open.push_back({bundle, bundle.ElementsBegin()});
}

}  // namespace corvalint
