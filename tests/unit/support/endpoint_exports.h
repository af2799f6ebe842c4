#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "support/clear_desktop.h"
#include "support/console_capture.h"
#include "support/fake_clock.h"
#include "support/paired_exports.h"
#include "winmidi/midi_endpoint_registry.h"

namespace corvalint::test {

static_assert(sizeof(corvalint_bool) == 1 && sizeof(corvalint_int64) == 8);

// The one registry, which a test fills and which is empty again after it.
class EndpointExportsTest : public testing::Test {
 protected:
  ~EndpointExportsTest() override { Clear(); }

  static MidiEndpoint& AddSource(const std::string& name, std::int32_t id) {
    const auto source = std::make_shared<MidiSourceEndpoint>(GetMidiEndpointRegistry());
    Fill(*source, name, id);
    CriticalSectionScope hold(GetMidiEndpointRegistry().listLock);
    GetMidiEndpointRegistry().Append(source);
    return *source;
  }
  static MidiEndpoint& AddDestination(const std::string& name, std::int32_t id) {
    const auto destination = std::make_shared<MidiDestinationEndpoint>();
    Fill(*destination, name, id);
    CriticalSectionScope hold(GetMidiEndpointRegistry().listLock);
    GetMidiEndpointRegistry().Append(destination);
    return *destination;
  }

  ConsoleCapture console;
  FakeClock clock;

 private:
  static void Fill(MidiEndpoint& endpoint, const std::string& name, std::int32_t id) {
    endpoint.name = name;
    endpoint.uniqueId = id;
  }
  static void Clear() {
    GetMidiEndpointRegistry().delegate = nullptr;
    ClearDesktop();
  }
};

class EitherList : public EndpointExportsTest, public testing::WithParamInterface<Exports> {
 protected:
  bool IsSources() const { return GetParam().count == kSources.count; }
  MidiEndpoint& Add(const std::string& name, std::int32_t id) {
    return IsSources() ? AddSource(name, id) : AddDestination(name, id);
  }
  MidiEndpoint& AddToTheOtherList(const std::string& name, std::int32_t id) {
    return IsSources() ? AddDestination(name, id) : AddSource(name, id);
  }
  std::string NameOf(int id) const {
    std::string name;
    const auto length = static_cast<int>(GetParam().nameLength(id));
    for (int i = 0; i < length; ++i) name += GetParam().nameByte(id, i);
    return name;
  }

  template <class Call>
  static void ExpectOutOfRange(const std::string& text, Call call) {
    try {
      call();
      ADD_FAILURE() << "nothing was raised";
    } catch (const std::out_of_range& failure) {
      EXPECT_EQ(failure.what(), text);
    }
  }
  void ExpectNoPosition(int position) const {
    SCOPED_TRACE(position);
    ExpectOutOfRange("invalid vector<T> subscript", [&] { GetParam().idAt(position); });
  }
  void ExpectNoByte(int id, int position) const {
    SCOPED_TRACE(position);
    ExpectOutOfRange("invalid string position", [&] { GetParam().nameByte(id, position); });
  }
};

}  // namespace corvalint::test
