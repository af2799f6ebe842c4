// What the demo shows while it runs, on a terminal and elsewhere.
#include <gtest/gtest.h>

#include <chrono>
#include <sstream>

#include "demo/progress.h"

namespace corvalint::demo {
namespace {

using std::chrono::milliseconds;

class DemoProgress : public testing::Test {
 protected:
  Progress Make(bool terminal) {
    return Progress(out, terminal, [this] { return now; });
  }
  // What was written since the last call.
  std::string Taken() {
    const std::string text = out.str();
    out.str("");
    return text;
  }

  std::ostringstream out;
  Progress::Time now;
};

TEST_F(DemoProgress, ATerminalsLineIsWrittenOver) {
  Progress progress = Make(true);
  progress.Begin("  own tempo ", 1200);
  EXPECT_EQ(Taken(), "  own tempo ");
  progress.Update(34, 33);
  EXPECT_EQ(Taken(), "\r\x1b[K  own tempo 34 sent, 33 of 1,200 arrived");
  progress.Update(35, 34);
  EXPECT_EQ(Taken(), "\r\x1b[K  own tempo 35 sent, 34 of 1,200 arrived");
  progress.End("done");
  EXPECT_EQ(Taken(), "\r\x1b[K  own tempo done\n");
  progress.Line("next");
  EXPECT_EQ(Taken(), "next\n");
}

TEST_F(DemoProgress, ElsewhereLinesArePlain) {
  Progress progress = Make(false);
  progress.Begin("  own tempo ", 5);
  EXPECT_EQ(Taken(), "");
  progress.Update(2, 1);
  EXPECT_EQ(Taken(), "  own tempo 2 sent, 1 of 5 arrived\n");
  progress.End("done");
  EXPECT_EQ(Taken(), "  own tempo done\n");
}

TEST_F(DemoProgress, IsDueMoreOftenOnATerminal) {
  Progress terminal = Make(true);
  Progress plain = Make(false);
  terminal.Begin("", 1);
  plain.Begin("", 1);
  EXPECT_FALSE(terminal.Due());
  now += milliseconds(99);
  EXPECT_FALSE(terminal.Due());
  now += milliseconds(1);
  EXPECT_TRUE(terminal.Due());
  EXPECT_FALSE(plain.Due());
  now += milliseconds(1900);
  EXPECT_TRUE(plain.Due());
  plain.Update(0, 0);
  EXPECT_FALSE(plain.Due());
}

TEST_F(DemoProgress, AnAbandonedStepLeavesNoHalfLine) {
  Progress progress = Make(true);
  progress.Abandon();
  EXPECT_EQ(Taken(), "");
  progress.Begin("step", 1);
  progress.Abandon();
  EXPECT_EQ(Taken(), "step\n");
  progress.Abandon();
  EXPECT_EQ(Taken(), "");
}

}  // namespace
}  // namespace corvalint::demo
