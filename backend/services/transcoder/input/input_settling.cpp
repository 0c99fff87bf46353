#include "backend/services/transcoder/input/input_settling.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "backend/base/members.h"
#include "backend/base/text_form.h"
#include "backend/platform/clock.h"
#include "backend/platform/output_file.h"
#include "backend/platform/sleep.h"
#include "backend/platform/task.h"
#include "backend/services/transcoder/input/input_probe.h"

namespace weir {

namespace {

using Kind = ProbeState::Kind;

constexpr std::ptrdiff_t max_probes = 8;
constexpr std::chrono::milliseconds look_interval{50};

bool is_probing(const ProbeState& state) { return state.kind == Kind::silent || state.kind == Kind::sends; }

bool holds_up_others(const ProbeState& state) {
  if (state.kind == Kind::waiting || state.kind == Kind::sends) return true;
  return state.kind == Kind::silent && state.elapsed < silence_patience;
}

/// An input and its probe, shared by the settling and the probe's task.
struct Probe {
  InputCandidate candidate;
  ProbeState state;
  TimePoint begin;
  Task task;
  std::shared_ptr<const OutputFile> log;
  std::string reason;
  std::string format;

  void fail(std::string why) {
    state.kind = Kind::fails;
    reason = std::move(why);
  }
};

Async<> run_probe(std::shared_ptr<Probe> probe) {
  const Value answer = co_await probe_input(probe->candidate.open_arguments, probe->candidate.timeout, probe->log);
  const Value& error = member(answer, "error");
  if (!error.is_null()) {
    probe->fail(to_text(error));
    co_return;
  }
  probe->state.kind = Kind::answers;
  probe->format = to_text(member(answer, "format"));
}

void begin_probe(const std::shared_ptr<Probe>& probe) {
  try {
    probe->log = std::make_shared<const OutputFile>(max_probe_log);
  } catch (const std::system_error& failure) {
    probe->fail(fmt::format("its probe cannot be run: {}", failure.code().message()));
    return;
  }
  probe->state.kind = Kind::silent;
  probe->begin = now();
  probe->task = spawn("probe of an input", run_probe(probe));
}

void look_at(Probe& probe) {
  if (!is_probing(probe.state)) return;
  if (probe.task.dead()) probe.fail("its probe failed");
  probe.state.elapsed = now() - probe.begin;
  if (probe.state.kind == Kind::silent && shows_data(probe.log->content())) probe.state.kind = Kind::sends;
}

std::string get_reason(const Probe& probe) {
  if (probe.state.kind != Kind::silent) return probe.reason;
  return fmt::format("nothing received for {} s", silence_patience.count());
}

/// The probes of one settling; they end with it.
class Probes {
 public:
  explicit Probes(std::vector<InputCandidate> candidates) {
    for (InputCandidate& candidate : candidates) {
      auto probe = std::make_shared<Probe>();
      probe->candidate = std::move(candidate);
      if (!probe->candidate.refusal.empty()) probe->fail(probe->candidate.refusal);
      probes_.push_back(std::move(probe));
    }
  }
  ~Probes() {
    for (const auto& probe : probes_) probe->task.kill();
  }
  Probes(const Probes&) = delete;
  Probes& operator=(const Probes&) = delete;

  /// Begins the probes that there is room for, and looks at those under way.
  SettlingDecision look() {
    begin_probes();
    std::vector<ProbeState> states;
    for (const auto& probe : probes_) {
      look_at(*probe);
      states.push_back(probe->state);
    }
    return decide_settling(states);
  }

  SettledInput take(std::size_t index) const {
    SettledInput settled{index, probes_[index]->format, get_reasons()};
    std::fill(settled.reasons.begin() + static_cast<std::ptrdiff_t>(index), settled.reasons.end(), "");
    return settled;
  }

  std::vector<std::string> get_reasons() const {
    std::vector<std::string> reasons;
    for (const auto& probe : probes_) reasons.push_back(get_reason(*probe));
    return reasons;
  }

 private:
  void begin_probes() {
    auto running = std::ranges::count_if(probes_, [](const auto& probe) { return is_probing(probe->state); });
    for (const auto& probe : probes_) {
      if (probe->state.kind != Kind::waiting || running >= max_probes) continue;
      begin_probe(probe);
      ++running;
    }
  }

  std::vector<std::shared_ptr<Probe>> probes_;
};

}  // namespace

SettlingDecision decide_settling(std::span<const ProbeState> states) {
  for (std::size_t i = 0; i < states.size(); ++i) {
    if (states[i].kind == Kind::answers) return {SettlingDecision::Kind::take, i};
    if (holds_up_others(states[i])) return {SettlingDecision::Kind::wait, 0};
  }
  const bool may_answer = std::ranges::any_of(states, is_probing);
  return {may_answer ? SettlingDecision::Kind::wait : SettlingDecision::Kind::fail, 0};
}

Async<SettledInput> settle_inputs(std::vector<InputCandidate> candidates) {
  Probes probes(std::move(candidates));
  for (;;) {
    const SettlingDecision decision = probes.look();
    if (decision.kind == SettlingDecision::Kind::take) co_return probes.take(decision.index);
    if (decision.kind == SettlingDecision::Kind::fail) co_return SettledInput{std::nullopt, "", probes.get_reasons()};
    co_await sleep(look_interval);
  }
}

}  // namespace weir
