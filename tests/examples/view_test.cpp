// The view of examples/cpp/corvalint.hpp on functions of this file: lists that change while they
// are walked, and devices that cannot be opened.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "cpp/corvalint.hpp"

namespace {

using corvalint_view::Side;
using corvalint_view::SwitchedOn;
using testing::IsEmpty;

// What the functions below tell of.
struct List {
  std::vector<int> ids;
  std::map<int, std::string> names;
  std::map<int, bool> on;
  bool opens = true;
  int rangeFailures = 0;
  // After so many answers about an id the endpoints at these positions go, in rising order.
  int answersUntilSomeGo = -1;
  std::vector<std::size_t> going;
};
List* list = nullptr;

bool Known(int id) { return std::find(list->ids.begin(), list->ids.end(), id) != list->ids.end(); }

int IdAt(int position) {
  int id = 0;
  if (position < 0 || static_cast<std::size_t>(position) >= list->ids.size()) {
    ++list->rangeFailures;
  } else {
    id = list->ids[static_cast<std::size_t>(position)];
  }
  if (--list->answersUntilSomeGo == 0) {
    for (auto gone = list->going.rbegin(); gone != list->going.rend(); ++gone) {
      list->ids.erase(list->ids.begin() + static_cast<std::ptrdiff_t>(*gone));
    }
  }
  return id;
}

void Toggle(unsigned int id) {
  bool& on = list->on[static_cast<int>(id)];
  on = !on && list->opens;
}

const Side side{[] { return static_cast<corvalint_int64>(list->ids.size()); },
                IdAt,
                [](int id) { return static_cast<unsigned int>(list->names[id].size()); },
                [](int id, int at) { return list->names[id].at(static_cast<std::size_t>(at)); },
                Toggle,
                [](int id) { return static_cast<corvalint_bool>(Known(id) && list->on[id]); },
                [](int id) { return static_cast<corvalint_bool>(Known(id) && list->opens); }};

class View : public testing::Test {
 protected:
  View() { list = &present; }
  ~View() override { list = nullptr; }
  List present;
};

TEST_F(View, GivesTheListInItsOrder) {
  present.ids = {7, -3, 0};
  present.names = {{7, "Keys"}, {-3, ""}, {0, std::string("P\0d\xFF", 4)}};
  const auto endpoints = corvalint_view::Endpoints(side);
  ASSERT_EQ(endpoints.size(), 3u);
  EXPECT_EQ(endpoints[0].id, 7);
  EXPECT_EQ(endpoints[0].name, "Keys");
  EXPECT_EQ(endpoints[1].id, -3);
  EXPECT_EQ(endpoints[1].name, "");
  EXPECT_EQ(endpoints[2].name, std::string("P\0d\xFF", 4));
  EXPECT_TRUE(endpoints[2].available);
  present.ids.clear();
  EXPECT_THAT(corvalint_view::Endpoints(side), IsEmpty());
}

// Walks over a list of which those go after so many answers.
void WalkWhileSomeGo(int answers, const std::vector<std::size_t>& going) {
  SCOPED_TRACE(testing::Message() << "after " << answers << " answers go "
                                  << testing::PrintToString(going));
  *list = {};
  list->ids = {10, 11, 12, 13, 14, 15};
  list->answersUntilSomeGo = answers;
  list->going = going;
  const std::vector<int> ids = corvalint_view::Ids(side);
  EXPECT_EQ(list->rangeFailures, 0);
  for (const int id : list->ids) EXPECT_THAT(ids, testing::Contains(id).Times(1));
  EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));
}

// Whichever goes, and whenever after the first answer.
TEST_F(View, MissesNoneAndNeverAsksBeyondTheEndWhenOneGoesMeanwhile) {
  for (int answers = 1; answers <= 6; ++answers) {
    for (std::size_t position = 0; position < 6; ++position) {
      WalkWhileSomeGo(answers, std::vector<std::size_t>(1, position));
    }
  }
}

// One scan may take several out at once: any of them, down to the whole list.
TEST_F(View, MissesNoneAndNeverAsksBeyondTheEndWhenSeveralGoAtOnce) {
  WalkWhileSomeGo(1, {4, 5});
  WalkWhileSomeGo(4, {0, 1, 2, 3, 4});
  for (int answers = 1; answers <= 6; ++answers) {
    for (unsigned which = 1; which < 1u << 6; ++which) {
      std::vector<std::size_t> going;
      for (std::size_t position = 0; position < 6; ++position) {
        if ((which >> position & 1u) != 0) going.push_back(position);
      }
      WalkWhileSomeGo(answers, going);
    }
  }
}

TEST_F(View, KeepsAnEndpointOnAsLongAsItsObjectLives) {
  present.ids = {7, 8};
  {
    SwitchedOn first(side, 7);
    EXPECT_TRUE(present.on[7]);
    SwitchedOn moved(std::move(first));
    EXPECT_TRUE(present.on[7]);
    moved = SwitchedOn(side, 8);
    EXPECT_FALSE(present.on[7]);
    EXPECT_TRUE(present.on[8]);
  }
  EXPECT_FALSE(present.on[8]);
}

TEST_F(View, RefusesADeviceThatCannotBeOpenedOrHasGone) {
  present.ids = {7};
  EXPECT_THROW(SwitchedOn(side, 9), std::runtime_error);
  present.opens = false;
  EXPECT_THROW(SwitchedOn(side, 7), std::runtime_error);
  EXPECT_FALSE(present.on[7]);
}

TEST_F(View, LeavesADeviceAloneThatHasGoneMeanwhile) {
  present.ids = {7};
  {
    SwitchedOn on(side, 7);
    present.ids.clear();
  }
  EXPECT_TRUE(present.on[7]);  // untouched
}

}  // namespace
