#include "host/documents.h"

#include <cstddef>

#include "host/json.h"

namespace corvalint::host {

std::string EndpointsJson(const std::vector<Endpoint>& endpoints) {
  std::string json;
  for (std::size_t position = 0; position < endpoints.size(); ++position) {
    const Endpoint& endpoint = endpoints[position];
    json += position == 0 ? "" : ",";
    json += JsonObject()
                .Number("position", static_cast<std::int64_t>(position))
                .Number("id", endpoint.id)
                .String("name", endpoint.name)
                .String("nameHex", HexBytes(endpoint.nameBytes))
                .Bool("on", endpoint.on)
                .Bool("available", endpoint.available)
                .Text();
  }
  return "[" + json + "]";
}

std::string ListDocument(const Listing& listing, unsigned int devices) {
  return JsonObject()
      .String("kind", "list")
      .Number("devices", devices)
      .Raw("sources", EndpointsJson(listing.sources))
      .Raw("destinations", EndpointsJson(listing.destinations))
      .Text();
}

std::string ChangeDocument(const Change& change, std::string_view time) {
  static const char* const kWords[] = {"came", "went", "on", "off", "available", "unavailable"};
  return JsonObject()
      .String("kind", "change")
      .String("time", time)
      .String("change", kWords[static_cast<std::size_t>(change.kind)])
      .String("side", change.side)
      .Number("id", change.endpoint.id)
      .String("name", change.endpoint.name)
      .Text();
}

std::string DevicesDocument(unsigned int devices, std::string_view time) {
  return JsonObject()
      .String("kind", "devices")
      .String("time", time)
      .Number("devices", devices)
      .Text();
}

std::string MidiDocument(const PortNews& news, std::string_view time) {
  JsonObject document;
  document.String("kind", "midi").String("time", time).String("name", news.name);
  if (news.refused != 0)
    return document.Raw("messages", "null").Number("result", news.refused).Text();
  return document.Number("messages", static_cast<std::int64_t>(news.messages)).Text();
}

std::string SwitchedDocument(std::string_view side, const Endpoint& endpoint, bool on) {
  return JsonObject()
      .String("kind", "switched")
      .String("side", side)
      .Number("id", endpoint.id)
      .String("name", endpoint.name)
      .Bool("on", on)
      .Text();
}

std::string ErrorDocument(int exitCode, std::string_view text) {
  return JsonObject().String("kind", "error").Number("exit", exitCode).String("text", text).Text();
}

}  // namespace corvalint::host
