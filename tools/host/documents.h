#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/endpoints.h"
#include "host/port_counts.h"

// The documents of --json, each one line of JSON without its line end. docs/host-tool.md describes
// them.
namespace corvalint::host {

// An array with an object for each endpoint.
std::string EndpointsJson(const std::vector<Endpoint>& endpoints);

std::string ListDocument(const Listing& listing, unsigned int devices);

// `time` is the local time of day with its date.
std::string ChangeDocument(const Change& change, std::string_view time);
std::string DevicesDocument(unsigned int devices, std::string_view time);

// The messages of one second at a published port, or why they cannot be counted.
std::string MidiDocument(const PortNews& news, std::string_view time);

// That an endpoint is on or off now, as it was wanted.
std::string SwitchedDocument(std::string_view side, const Endpoint& endpoint, bool on);

// Why the program ends with that exit code.
std::string ErrorDocument(int exitCode, std::string_view text);

}  // namespace corvalint::host
