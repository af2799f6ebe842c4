#include <gtest/gtest.h>

#include <memory>
#include <type_traits>
#include <vector>

#include "corvalint_wrapper.h"
#include "service/log.h"
#include "startup/service_thread.h"
#include "support/call_log.h"
#include "support/console_capture.h"
#include "support/deferred_threads.h"
#include "support/fake_clock.h"
#include "support/fake_library.h"
#include "support/fake_process.h"
#include "support/fake_registry.h"
#include "support/recording_client.h"
#include "support/test_server.h"

namespace corvalint {
namespace {

using test::CallLog;
using test::ConsoleCapture;
using test::DeferredThreads;
using test::FakeClock;
using test::FakeLibrary;
using test::FakeProcess;
using test::FakeRegistry;
using test::RecordingClient;
using test::TestServer;

// What hosts of any language were told.
static_assert(std::is_same_v<decltype(corvalintServerStart), void()>);
static_assert(std::is_same_v<decltype(corvalintServerWiFiClients), int()>);
static_assert(std::is_same_v<decltype(corvalintServerUSBClients), unsigned int()>);
static_assert(std::is_same_v<decltype(corvalintServerScriptActive), corvalint_bool()>);
static_assert(std::is_same_v<decltype(corvalintServerActiveConnections), int()>);
static_assert(
    std::is_same_v<decltype(initliaze_port_control), void(corvalint_int64, corvalint_int64)>);
static_assert(sizeof(corvalint_int64) == 8 && std::is_signed_v<corvalint_int64>);
static_assert(sizeof(corvalint_bool) == 1);

void ExpectFixedValues() {
  EXPECT_EQ(corvalintServerWiFiClients(), 14);
  EXPECT_EQ(corvalintServerScriptActive(), 1);
  EXPECT_EQ(corvalintServerActiveConnections(), 1337);
}

TEST(ServiceExports, GiveFixedValuesBeforeTheStart) { ExpectFixedValues(); }

TEST(ServiceExports, GiveFixedValuesWhateverIsConnected) {
  TestServer server;
  RecordingClient first, second;
  server.clients.Append(first);
  server.clients.Append(second);
  ExpectFixedValues();
}

TEST(ServiceExports, GiveFixedValuesAndEmptyListsRightAfterTheStart) {
  CallLog calls;
  FakeProcess process(calls);
  FakeRegistry registry(calls);
  FakeLibrary libraries(calls);
  DeferredThreads threads(calls);
  FakeClock clock;
  LogResetForTest();
  corvalintServerStart();
  EXPECT_EQ(threads.Made(), 1);
  ExpectFixedValues();
  EXPECT_EQ(corvalintServerUSBClients(), 0u);
  EXPECT_EQ(corvalintServerGetCountOfSources(), 0);
  EXPECT_EQ(corvalintServerGetCountOfDestinations(), 0);
  LogResetForTest();
}

TEST(ServiceExports, CountNoClientsWithoutAServer) { EXPECT_EQ(corvalintServerUSBClients(), 0u); }

TEST(ServiceExports, CountTheClientsOfTheServer) {
  TestServer server;
  EXPECT_EQ(corvalintServerUSBClients(), 0u);
  std::vector<std::unique_ptr<RecordingClient>> clients;
  for (unsigned int i = 1; i <= 40; ++i) {
    clients.push_back(std::make_unique<RecordingClient>());
    server.clients.Append(*clients.back());
    EXPECT_EQ(corvalintServerUSBClients(), i);
  }
  server.clients.Remove(*clients.front());
  EXPECT_EQ(corvalintServerUSBClients(), 39u);
}

TEST(ServiceExports, ThePortControlDoesNothingWithAnyArguments) {
  CallLog calls;
  FakeProcess process(calls);
  DeferredThreads threads(calls);
  ConsoleCapture console;
  initliaze_port_control(0, 0);
  initliaze_port_control(-1, 1);
  initliaze_port_control(0x7FFFFFFFFFFFFFFF, -0x7FFFFFFFFFFFFFFF - 1);
  EXPECT_EQ(calls.Take(), CallLog::Calls{});
  EXPECT_EQ(console.Text(), "");
}

}  // namespace
}  // namespace corvalint
