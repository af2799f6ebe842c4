// The configuration file beside the shipped DLL's host: whatever it holds, the service starts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "windows/support/bridge.h"
#include "windows/support/observers.h"
#include "windows/support/serving.h"

namespace corvalint::windows_test {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

const std::string kNotRead = "not read to its end: invalid string position";

// A service that started with this file beside its host, or without one.
class Service {
 public:
  explicit Service(std::optional<std::string> configuration) {
    harness::DeskOptions options;
    options.configuration = std::move(configuration);
    bridge = std::make_unique<Bridge>(std::vector<std::string>{"Keys"},
                                      std::vector<std::string>{"Synth"}, options);
  }

  // Expects that a device is served in every way.
  void ExpectServing() {
    const auto plugged = bridge->Plug("device-a");
    const std::int32_t synth = bridge->SwitchDestinationOn("Synth");
    ExpectServed(*bridge, *plugged, "App", 5, "Synth", synth);
    ExpectClean(*bridge, {plugged.get()});
  }
  // The log's lines that name the file or are errors.
  std::vector<std::string> Told() {
    auto texts = TextsOf(LinesOf(bridge->GetDesk().Log()));
    std::erase_if(texts, [](const std::string& text) {
      return text.find("pellora.conf") == std::string::npos && !text.starts_with("ERROR");
    });
    return texts;
  }
  // What the host wrote on standard error beside its answers.
  std::string Notes() { return bridge->GetHost().Notes(); }

 private:
  std::unique_ptr<Bridge> bridge;
};

TEST(Configuration, AValidFileIsTakenInSilence) {
  // Lines that are none of the file's entries have no value that could be missing.
  Service service(
      "a=1\r\n\r\nb = two words \n;comment=\n#comment=\n=\n=nothing\nno entry\na=2\n  "
      "c=3\nd==\ne=4");
  service.ExpectServing();
  EXPECT_THAT(service.Told(), IsEmpty());
  EXPECT_EQ(service.Notes(), "");
}

TEST(Configuration, AMissingFileIsNotMissed) {
  Service service(std::nullopt);
  service.ExpectServing();
  EXPECT_THAT(service.Told(), IsEmpty());
}

TEST(Configuration, AnEmptyFileIsTakenInSilence) {
  Service service("");
  service.ExpectServing();
  EXPECT_THAT(service.Told(), IsEmpty());
}

TEST(Configuration, AnEmptyValueCostsOneErrorInTheLogAndNothingElse) {
  Service service("a=1\nb= \r\nc=\nd=4\n");
  service.ExpectServing();
  const auto told = service.Told();
  EXPECT_THAT(told, ElementsAre(testing::AllOf(StartsWith("ERROR "),
                                               EndsWith("\\pellora.conf " + kNotRead))));
  EXPECT_EQ(service.Notes(), "");
}

}  // namespace
}  // namespace corvalint::windows_test
