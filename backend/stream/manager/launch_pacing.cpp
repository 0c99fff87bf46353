#include "backend/stream/manager/launch_pacing.h"

#include <algorithm>
#include <cmath>
#include <deque>
#include <nlohmann/json.hpp>

#include "backend/platform/clock.h"
#include "backend/platform/sleep.h"

namespace weir {

namespace {

constexpr int max_under_way = 10;
constexpr std::chrono::milliseconds look_interval{100};
/// A source may take longer to be opened, but the processors have little to do with it by then.
constexpr std::chrono::seconds max_launch{3};

struct Launch {
  std::shared_ptr<Stream> stream;
  TimePoint begin;
};

bool is_over(const Launch& launch) {
  return launch.stream->get_status() != "starting" || now() - launch.begin >= max_launch;
}

/// The task of a stream that is started says so once it runs.
bool has_begun(const Stream& stream) { return stream.thread.dead() || stream.get_status() != "stopped"; }

class LaunchQueue {
 public:
  explicit LaunchQueue(std::vector<std::shared_ptr<Stream>> streams) : waiting_(streams.begin(), streams.end()) {}

  bool empty() const noexcept { return waiting_.empty(); }

  /// Takes note of what was launched at its own time or ended.
  void update() {
    std::erase_if(waiting_, [this](const auto& stream) {
      if (stream->awaits_launch() || !has_begun(*stream)) return false;
      under_way_.push_back({stream, now()});
      return true;
    });
    std::erase_if(under_way_, is_over);
  }

  void launch(double idle_processors) {
    const int count = count_launches(static_cast<int>(under_way_.size()), idle_processors);
    for (int i = 0; i < count && !waiting_.empty() && waiting_.front()->awaits_launch(); ++i) {
      waiting_.front()->launch_now();
      under_way_.push_back({waiting_.front(), now()});
      waiting_.pop_front();
    }
  }

 private:
  std::deque<std::shared_ptr<Stream>> waiting_;
  std::vector<Launch> under_way_;
};

}  // namespace

int count_launches(int under_way, double idle_processors) {
  const double wanted = std::round(std::clamp(idle_processors, 0.0, double{max_under_way}));
  return std::clamp(static_cast<int>(wanted), 0, std::max(max_under_way - under_way, 0));
}

Async<> hasten_launches(std::vector<std::shared_ptr<Stream>> streams, std::function<double()> look_at_processors) {
  LaunchQueue queue(std::move(streams));
  while (!queue.empty()) {
    co_await sleep(look_interval);
    queue.update();
    queue.launch(look_at_processors());
  }
}

}  // namespace weir
