#include "backend/services/transcoder/input/input_settling.h"

#include <gtest/gtest.h>

namespace weir {
namespace {

using namespace std::chrono_literals;
using Kind = SettlingDecision::Kind;

const ProbeState waiting{ProbeState::Kind::waiting, 0s};
const ProbeState answers{ProbeState::Kind::answers, 0s};
const ProbeState fails{ProbeState::Kind::fails, 0s};
ProbeState silent(std::chrono::nanoseconds elapsed) { return {ProbeState::Kind::silent, elapsed}; }
ProbeState sends(std::chrono::nanoseconds elapsed) { return {ProbeState::Kind::sends, elapsed}; }

TEST(InputSettlingTest, TakesTheBestInputThatAnswersOnceThePatienceWithThoseBeforeItIsOver) {
  const std::pair<std::vector<ProbeState>, SettlingDecision> cases[] = {
      {{}, {Kind::fail, 0}},
      {{fails, fails}, {Kind::fail, 0}},
      {{silent(2999ms), answers}, {Kind::wait, 0}},
      {{silent(3s), answers}, {Kind::take, 1}},
      {{sends(9s), answers}, {Kind::wait, 0}},
      {{silent(3s), sends(1s), answers}, {Kind::wait, 0}},
      {{silent(3s), silent(3s), answers, answers}, {Kind::take, 2}},
      {{waiting, answers}, {Kind::wait, 0}},
      {{fails, waiting}, {Kind::wait, 0}},
  };
  for (std::size_t i = 0; i < std::size(cases); ++i)
    EXPECT_EQ(decide_settling(cases[i].first), cases[i].second) << "case " << i;
}

}  // namespace
}  // namespace weir
