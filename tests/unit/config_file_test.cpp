#include "service/config_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>
#include <string>

#include "support/call_log.h"
#include "support/fake_process.h"

namespace corvalint {
namespace {

using test::CallLog;
using test::FakeProcess;

const char kPath[] = "C:\\host\\some.conf";

class ConfigFile : public testing::Test {
 protected:
  void Write(const std::string& bytes) {
    process.Folder().Write(FakeProcess::NameOf(kPath), bytes);
  }
  ConfigMap Read(const std::string& bytes) {
    Write(bytes);
    ConfigMap map;
    ReadConfigFile(map, kPath);
    return map;
  }
  // The text of the failure at that line; the entries around it are expected as they must be.
  std::string FailureAt(const std::string& line) {
    Write("before=1\n" + line + "\nafter=2\n");
    ConfigMap map;
    try {
      ReadConfigFile(map, kPath);
    } catch (const std::out_of_range& failure) {
      EXPECT_EQ(map, (ConfigMap{{"before", "1"}})) << line;
      return failure.what();
    }
    return "no failure";
  }

  CallLog calls;
  FakeProcess process{calls};
};

const char kEmptyValue[] = "invalid string position";

TEST_F(ConfigFile, IsOpenedForReadingOnly) {
  EXPECT_EQ(Read(""), ConfigMap{});
  EXPECT_EQ(calls.Take(), (CallLog::Calls{"openFile(C:\\host\\some.conf, r)"}));
}

TEST_F(ConfigFile, HasOneEntryALineInAnyOrder) {
  EXPECT_EQ(Read("b=2\na=1\nlong key=a value of words\n"),
            (ConfigMap{{"a", "1"}, {"b", "2"}, {"long key", "a value of words"}}));
}

TEST_F(ConfigFile, BlanksAroundTheEqualsSignDoNotCount) {
  EXPECT_EQ(Read("a=1\n"), (ConfigMap{{"a", "1"}}));
  EXPECT_EQ(Read("a = 1\n"), (ConfigMap{{"a", "1"}}));
  EXPECT_EQ(Read("a   =   1   \n"), (ConfigMap{{"a", "1"}}));
}

TEST_F(ConfigFile, AKeyKeepsTheBlanksBeforeIt) {
  EXPECT_EQ(Read("  a=1\n"), (ConfigMap{{"  a", "1"}}));
  EXPECT_EQ(Read("  a  = 1\na=2\n"), (ConfigMap{{"  a", "1"}, {"a", "2"}}));
}

TEST_F(ConfigFile, AKeyOfBlanksIsTheEmptyKey) { EXPECT_EQ(Read("  =1\n"), (ConfigMap{{"", "1"}})); }

TEST_F(ConfigFile, OnlyBlanksAndLineEndsAreTrimmed) {
  EXPECT_EQ(Read("a\t=\t1\t\n"), (ConfigMap{{"a\t", "\t1\t"}}));
  EXPECT_EQ(Read("a\r =\r 1 \r\r\n"), (ConfigMap{{"a", "1"}}));
}

TEST_F(ConfigFile, EmptyLinesAndCommentsAreIgnored) {
  EXPECT_EQ(Read("\n;a=1\n#b=2\n;\n#\n\r\n\nc=3\n\n"), (ConfigMap{{"c", "3"}}));
}

TEST_F(ConfigFile, ACommentWithABlankBeforeItIsAnEntry) {
  EXPECT_EQ(Read(" ;a=1\n #b=2\n"), (ConfigMap{{" ;a", "1"}, {" #b", "2"}}));
}

TEST_F(ConfigFile, ACommentSignInsideALineIsText) {
  EXPECT_EQ(Read("a=1 ;one\nb#=2\n"), (ConfigMap{{"a", "1 ;one"}, {"b#", "2"}}));
}

TEST_F(ConfigFile, LinesWithoutAnEqualsSignOrWithItFirstAreIgnored) {
  EXPECT_EQ(Read("nothing\n=1\n==\n=\n   \na=1\n"), (ConfigMap{{"a", "1"}}));
}

TEST_F(ConfigFile, TheFirstEqualsSignCounts) {
  EXPECT_EQ(Read("a=b=c\nd==\n"), (ConfigMap{{"a", "b=c"}, {"d", "="}}));
}

TEST_F(ConfigFile, TheLastLineOfAKeyCounts) {
  EXPECT_EQ(Read("a=1\nb=5\na=2\n"), (ConfigMap{{"a", "2"}, {"b", "5"}}));
}

TEST_F(ConfigFile, LinesOfWindowsAreRead) {
  EXPECT_EQ(Read("a=1\r\n;c=1\r\nb = 2 \r\n"), (ConfigMap{{"a", "1"}, {"b", "2"}}));
}

TEST_F(ConfigFile, TheLastLineNeedsNoEnd) {
  EXPECT_EQ(Read("a=1\nb=2"), (ConfigMap{{"a", "1"}, {"b", "2"}}));
  EXPECT_EQ(Read("a=1\nb"), (ConfigMap{{"a", "1"}}));
}

TEST_F(ConfigFile, AddsToWhatIsInTheMap) {
  Write("a=1\nb=2\n");
  ConfigMap map{{"a", "0"}, {"z", "26"}};
  ReadConfigFile(map, kPath);
  EXPECT_EQ(map, (ConfigMap{{"a", "1"}, {"b", "2"}, {"z", "26"}}));
}

TEST_F(ConfigFile, BytesArePlainBytes) {
  const std::string zeroes("k\0y = v\0l\0 \nb=2\n", 16);
  EXPECT_EQ(Read(zeroes),
            (ConfigMap{{std::string("k\0y", 3), std::string("v\0l\0", 4)}, {"b", "2"}}));
  EXPECT_EQ(Read("\xEF\xBB\xBF"
                 "a=\xFF\x80\n"),
            (ConfigMap{{"\xEF\xBB\xBF"
                        "a",
                        "\xFF\x80"}}));
  EXPECT_EQ(Read("a=\xFF\n\xFF=b\n"), (ConfigMap{{"a", "\xFF"}, {"\xFF", "b"}}));
}

// Where the text files of Windows end.
TEST_F(ConfigFile, NoByteEndsTheFile) {
  EXPECT_EQ(Read("a=1\n\x1A\nb=2\x1A\nc=3\n"), (ConfigMap{{"a", "1"}, {"b", "2\x1A"}, {"c", "3"}}));
}

TEST_F(ConfigFile, LinesMayBeLong) {
  const std::string key(100000, 'k');
  const std::string value(1000000, 'v');
  EXPECT_EQ(Read(key + "=" + value + "\na=1\n"), (ConfigMap{{key, value}, {"a", "1"}}));
}

TEST_F(ConfigFile, AnEmptyValueEndsTheReadingWithAFailure) {
  EXPECT_EQ(FailureAt("a="), kEmptyValue);
  EXPECT_EQ(FailureAt("a=   "), kEmptyValue);
  EXPECT_EQ(FailureAt("a=\r"), kEmptyValue);
  EXPECT_EQ(FailureAt("a= \r\r "), kEmptyValue);
  EXPECT_EQ(FailureAt("  ="), kEmptyValue);
  EXPECT_EQ(FailureAt(" ;a="), kEmptyValue);
}

TEST_F(ConfigFile, AnEmptyValueOnALastLineWithoutAnEndFailsToo) {
  Write("a=");
  ConfigMap map;
  EXPECT_THROW(ReadConfigFile(map, kPath), std::out_of_range);
}

TEST_F(ConfigFile, AnEmptyValueIsNoFailureWhereTheLineIsNoEntry) {
  EXPECT_EQ(FailureAt(";a="), "no failure");
  EXPECT_EQ(FailureAt("#a="), "no failure");
  EXPECT_EQ(FailureAt("="), "no failure");
  EXPECT_EQ(FailureAt("a=\t"), "no failure");  // a tabulator is a value
}

TEST_F(ConfigFile, AKeyKeepsItsOldValueWhereItsNewOneIsEmpty) {
  Write("a=1\na=\n");
  ConfigMap map;
  EXPECT_THROW(ReadConfigFile(map, kPath), std::out_of_range);
  EXPECT_EQ(map, (ConfigMap{{"a", "1"}}));
}

TEST_F(ConfigFile, AMissingOrUnreadableFileHasNoEntries) {
  ConfigMap map{{"z", "26"}};
  ReadConfigFile(map, kPath);
  process.RefuseFiles(true);
  ReadConfigFile(map, kPath);
  EXPECT_EQ(map, (ConfigMap{{"z", "26"}}));
}

TEST_F(ConfigFile, AFolderHasNoEntries) {
  std::filesystem::create_directory(process.Folder().PathOf(FakeProcess::NameOf(kPath)));
  ConfigMap map;
  ReadConfigFile(map, kPath);
  EXPECT_EQ(map, ConfigMap{});
}

// A file that stays open cannot be replaced on Windows.
TEST_F(ConfigFile, IsClosedAfterwardsHoweverTheReadingEnds) {
  const auto descriptors = [] {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
  };
  Write("a=1\n");
  ConfigMap map;
  const auto before = descriptors();
  ReadConfigFile(map, kPath);
  EXPECT_EQ(descriptors(), before);
  Write("a=\n");
  EXPECT_THROW(ReadConfigFile(map, kPath), std::out_of_range);
  EXPECT_EQ(descriptors(), before);
}

}  // namespace
}  // namespace corvalint
