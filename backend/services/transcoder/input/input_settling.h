#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "backend/base/value.h"
#include "backend/platform/async.h"

namespace weir {

/// One of the inputs among which a stream's next run chooses, and how it is probed.
struct InputCandidate {
  std::string refusal;                      ///< why it cannot be opened at all; empty when it can
  std::vector<std::string> open_arguments;  ///< of `make_open_arguments`
  std::chrono::nanoseconds timeout{0};      ///< after which its probe gives up
};

/// What is known of an input while all are probed side by side.
struct ProbeState {
  enum class Kind {
    waiting,  ///< its probe has not begun
    silent,   ///< nothing has come from it yet
    sends,    ///< it has been opened, and is being described
    answers,
    fails,
  };
  Kind kind = Kind::waiting;
  std::chrono::nanoseconds elapsed{0};  ///< since its probe began
};

/// How long an input that has sent nothing holds up those after it; one that sends does so until its probe ends.
constexpr std::chrono::seconds silence_patience{3};

struct SettlingDecision {
  enum class Kind { wait, take, fail };
  Kind kind = Kind::wait;
  std::size_t index = 0;  ///< of the input that is taken

  bool operator==(const SettlingDecision&) const = default;
};

/// Takes the best input that has answered once the patience with those before it is over; `states` are in the order of
/// preference. Fails when all have.
SettlingDecision decide_settling(std::span<const ProbeState> states);

struct SettledInput {
  std::optional<std::size_t> taken;  ///< nothing when no input answers
  std::string format;                ///< of the one taken, as the probe names it
  std::vector<std::string> reasons;  ///< per input why it was not taken; empty for those after the one taken
};

/// Probes the inputs side by side, at most eight at a time, until one is to be taken. No probe outlives the call.
Async<SettledInput> settle_inputs(std::vector<InputCandidate> candidates);

}  // namespace weir
