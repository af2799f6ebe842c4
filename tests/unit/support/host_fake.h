#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/endpoints.h"
#include "host/person.h"
#include "host/wrapper.h"

// A library that is a few vectors in memory, for tests of the console host's logic.
namespace corvalint::host {

struct FakeEndpoint {
  int id;
  std::string name;
  bool on = false;
  bool available = true;
  bool opens = true;
};

using FakeSide = std::vector<FakeEndpoint>;

inline FakeSide fakeSides[2];
inline int idReads = 0;
inline int vanishAtIdRead = 0;  // The last source goes just before this read of an id; 0: never.
inline int startCalls = 0;
inline unsigned int fakeClients = 0;
inline corvalint_int64 controlArguments[2];

inline FakeEndpoint* Find(int side, int id) {
  for (FakeEndpoint& endpoint : fakeSides[side]) {
    if (endpoint.id == id) return &endpoint;
  }
  return nullptr;
}

template <int side>
int IdAt(int position) {
  if (++idReads == vanishAtIdRead) fakeSides[0].pop_back();
  if (position < 0 || position >= static_cast<int>(fakeSides[side].size())) {
    throw std::out_of_range("invalid vector<T> subscript");
  }
  return fakeSides[side][static_cast<size_t>(position)].id;
}

template <int side>
char NameByte(int id, int position) {
  FakeEndpoint* endpoint = Find(side, id);
  if (endpoint == nullptr) return 0;
  if (position < 0 || position >= static_cast<int>(endpoint->name.size())) {
    throw std::out_of_range("invalid string position");
  }
  return endpoint->name[static_cast<size_t>(position)];
}

template <int side>
SideCalls FakeCalls() {
  SideCalls calls;
  calls.count = [] { return static_cast<corvalint_int64>(fakeSides[side].size()); };
  calls.idAt = IdAt<side>;
  calls.nameLength = [](int id) {
    FakeEndpoint* endpoint = Find(side, id);
    return endpoint == nullptr ? 0U : static_cast<unsigned int>(endpoint->name.size());
  };
  calls.nameByte = NameByte<side>;
  calls.toggle = [](unsigned int id) {
    FakeEndpoint* endpoint = Find(side, static_cast<int>(id));
    if (endpoint == nullptr) return;
    if (!endpoint->on && !endpoint->opens) endpoint->available = false;
    endpoint->on = !endpoint->on && endpoint->opens;
  };
  calls.status = [](int id) {
    FakeEndpoint* endpoint = Find(side, id);
    return static_cast<corvalint_bool>(endpoint != nullptr && endpoint->on);
  };
  calls.available = [](int id) {
    FakeEndpoint* endpoint = Find(side, id);
    return static_cast<corvalint_bool>(endpoint != nullptr && endpoint->available);
  };
  return calls;
}

inline Wrapper FakeWrapper() {
  Wrapper wrapper;
  wrapper.start = [] { ++startCalls; };
  wrapper.wifiClients = [] { return 41; };
  wrapper.usbClients = [] { return fakeClients; };
  wrapper.scriptActive = [] { return static_cast<corvalint_bool>(1); };
  wrapper.activeConnections = [] { return 43; };
  wrapper.portControl = [](corvalint_int64 first, corvalint_int64 second) {
    controlArguments[0] = first;
    controlArguments[1] = second;
  };
  wrapper.sources = FakeCalls<0>();
  wrapper.destinations = FakeCalls<1>();
  return wrapper;
}

class HostTest : public ::testing::Test {
 protected:
  HostTest() {
    fakeSides[0] = {{-7, "Keys"}, {12, "Caf\xE9"}};
    fakeSides[1] = {{30, "Keys"}, {31, "Broken", false, true, false}};
    idReads = vanishAtIdRead = startCalls = 0;
    fakeClients = 0;
    controlArguments[0] = controlArguments[1] = 0;
    // Latin-1, the part of the ANSI code page that needs no table.
    system.ansiToUtf8 = [](const std::string& bytes) {
      std::string text;
      for (char byte : bytes) {
        auto code = static_cast<unsigned char>(byte);
        if (code < 0x80) {
          text += byte;
        } else {
          text += static_cast<char>(0xC0 | (code >> 6));
          text += static_cast<char>(0x80 | (code & 0x3F));
        }
      }
      return text;
    };
    system.processCounts = [] { return ProcessCounts{17, 5}; };
    system.sleep = [this](int) {
      ++sleeps;
      if (onSleep) onSleep();
    };
    system.takeInterrupt = [this] { return sleeps >= sleepsUntilInterrupt; };
    system.columns = [this] { return columns; };
    system.processId = 99;
  }

  // What is said to a command line that ends with that exit code, complaints and all.
  std::string Say(const std::string& line, int expectedCode) {
    printed.clear();
    EXPECT_EQ(person.Do(line), expectedCode) << line;
    return printed;
  }

  Output MakeOutput(bool json) {
    Output output;
    output.json = json;
    output.print = [this](const std::string& text) { printed += text; };
    output.complain = [this](int code, const std::string& text) {
      printed += std::to_string(code) + ": " + text + "\n";
    };
    return output;
  }

  System system;
  Wrapper wrapper = FakeWrapper();
  std::string printed;
  Person person{wrapper, system, MakeOutput(false)};
  std::function<void()> onSleep;
  int columns = 0;
  int sleeps = 0;
  int sleepsUntilInterrupt = 1000;
};

}  // namespace corvalint::host
