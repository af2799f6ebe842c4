// The numbers that test programs are given while several run at once.
#include "ports/free_udp_port.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <vector>

namespace corvalint::test {
namespace {

using Numbers = std::array<std::uint16_t, 400>;

// Another test program: takes its numbers at once, and runs until it is no longer needed.
class Program {
 public:
  Program() {
    std::array<int, 2> told{};
    std::array<int, 2> held{};
    EXPECT_EQ(pipe(told.data()) + pipe(held.data()), 0);
    id = fork();
    if (id == 0) {
      for (std::uint16_t& number : numbers) number = FreeUdpPort();
      const auto size = static_cast<ssize_t>(sizeof numbers);
      const bool written = write(told[1], numbers.data(), sizeof numbers) == size;
      close(held[1]);
      char nothing = 0;
      _exit(written && read(held[0], &nothing, 1) == 0 ? 0 : 1);
    }
    close(told[1]);
    close(held[0]);
    end = held[1];
    EXPECT_EQ(read(told[0], numbers.data(), sizeof numbers), static_cast<ssize_t>(sizeof numbers));
    close(told[0]);
    std::sort(numbers.begin(), numbers.end());
  }
  ~Program() {
    close(end);
    int status = -1;
    EXPECT_EQ(waitpid(id, &status, 0), id);
    EXPECT_EQ(status, 0);
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  const Numbers& Taken() const { return numbers; }

 private:
  Numbers numbers{};
  pid_t id = -1;
  int end = -1;
};

TEST(FreeUdpPort, IsAnotherOneWithEachCall) {
  const Program program;
  const Numbers& taken = program.Taken();
  EXPECT_EQ(std::adjacent_find(taken.begin(), taken.end()), taken.end());
}

TEST(FreeUdpPort, NoTwoProgramsAtATimeAreGivenTheSameOne) {
  const Program one;
  const Program other;
  std::vector<std::uint16_t> both;
  std::set_intersection(one.Taken().begin(), one.Taken().end(), other.Taken().begin(),
                        other.Taken().end(), std::back_inserter(both));
  EXPECT_TRUE(both.empty()) << both.size() << " numbers";
}

}  // namespace
}  // namespace corvalint::test
