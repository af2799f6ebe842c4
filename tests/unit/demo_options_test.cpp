// What a person may ask of the demo.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "demo/options.h"

namespace corvalint::demo {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::ThrowsMessage;

using Paths = std::vector<std::filesystem::path>;
const Paths kThere{"/m/Alpha.mid", "/m/alpha_two.mid", "/m/beta.mid", "/m/tttheme2.mid"};

Options Asking(const std::vector<std::string>& names) {
  Options options;
  options.songs = names;
  return options;
}

TEST(DemoOptions, DefaultIsOneSongAndSomeBars) {
  const Options options = ParseOptions({});
  EXPECT_THAT(options.songs, IsEmpty());
  EXPECT_EQ(options.bars, 3u);
  EXPECT_FALSE(options.all || options.verbose || options.keep || options.help);
  EXPECT_THAT(ChooseSongs(options, kThere), ElementsAre("/m/tttheme2.mid"));
}

TEST(DemoOptions, TakesEveryOption) {
  const Options options =
      ParseOptions({"--song", "a", "--bars", "0", "--verbose", "--song", "b", "--keep", "--help"});
  EXPECT_THAT(options.songs, ElementsAre("a", "b"));
  EXPECT_EQ(options.bars, 0u);
  EXPECT_TRUE(options.verbose && options.keep && options.help);
  EXPECT_TRUE(ParseOptions({"--all"}).all);
}

TEST(DemoOptions, NamesWhatMakesNoSense) {
  const auto error = [](const std::vector<std::string>& arguments) -> std::string {
    try {
      ParseOptions(arguments);
    } catch (const std::invalid_argument& failure) {
      return failure.what();
    }
    return "accepted";
  };
  EXPECT_THAT(error({"--loud"}), HasSubstr("\"--loud\""));
  EXPECT_THAT(error({"song"}), HasSubstr("\"song\""));
  EXPECT_THAT(error({"--song"}), HasSubstr("--song needs a value"));
  EXPECT_THAT(error({"--song", ""}), HasSubstr("--song needs a value"));
  for (const char* bars : {"-1", "x", "3x", "1000", "99999999999999999999999"}) {
    EXPECT_THAT(error({"--bars", bars}), HasSubstr("not \"" + std::string(bars) + "\""));
  }
  EXPECT_EQ(error({"--bars", "999"}), "accepted");
  EXPECT_THAT(error({"--all", "--song", "a"}), HasSubstr("exclude"));
}

TEST(DemoOptions, AWholeNameWinsOverAPart) {
  EXPECT_THAT(ChooseSongs(Asking({"ALPHA"}), kThere), ElementsAre("/m/Alpha.mid"));
}

TEST(DemoOptions, APartThatOnlyOneSongHasWillDo) {
  EXPECT_THAT(ChooseSongs(Asking({"_TWO", "bet"}), kThere),
              ElementsAre("/m/alpha_two.mid", "/m/beta.mid"));
}

TEST(DemoOptions, ASongIsPlayedOnce) {
  EXPECT_THAT(ChooseSongs(Asking({"beta", "bet"}), kThere), ElementsAre("/m/beta.mid"));
}

TEST(DemoOptions, AllMeansAll) {
  Options options;
  options.all = true;
  EXPECT_EQ(ChooseSongs(options, kThere), kThere);
}

TEST(DemoOptions, AnAmbiguousOrUnknownNameListsTheChoice) {
  EXPECT_THAT([] { ChooseSongs(Asking({"lph"}), kThere); },
              ThrowsMessage<std::invalid_argument>(testing::AllOf(
                  HasSubstr("Alpha"), HasSubstr("alpha_two"), Not(HasSubstr("beta")))));
  EXPECT_THAT([] { ChooseSongs(Asking({"gamma"}), kThere); },
              ThrowsMessage<std::invalid_argument>(
                  testing::AllOf(HasSubstr("\"gamma\""), HasSubstr("beta"))));
}

TEST(DemoOptions, WithoutMusicThePackageIsNamed) {
  EXPECT_THAT([] { ChooseSongs({}, {}); },
              ThrowsMessage<std::runtime_error>(HasSubstr("openttd-openmsx")));
}

}  // namespace
}  // namespace corvalint::demo
