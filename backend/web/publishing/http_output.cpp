#include "backend/web/publishing/http_output.h"

#include <algorithm>

#include "backend/platform/sleep.h"

namespace weir {

namespace {

constexpr std::size_t max_write = 256 * 1024;

// Each wake-up is a write to a socket. All viewers at once would keep requests waiting.
constexpr std::size_t min_woken_at_once = 32;
constexpr std::size_t steps = 4;

}  // namespace

HttpViewer::HttpViewer(std::shared_ptr<HttpOutput> output, HttpClient client, std::unique_ptr<Viewers::Seat> seat)
    : output_(std::move(output)),
      client_(std::move(client)),
      seat_(std::move(seat)),
      period_(output_->period_),
      position_(output_->ring_.begin()) {
  output_->viewers_.insert(this);
}

HttpViewer::~HttpViewer() {
  output_->viewers_.erase(this);
  if (output_->on_left) output_->on_left(*this);
}

Async<std::vector<LiveSlice>> HttpViewer::next() {
  for (;;) {
    std::vector<LiveSlice> slices;
    if (period_ != output_->period_) co_return slices;
    slices = output_->ring_.read(position_, max_write);
    if (!slices.empty() || position_.lost) co_return slices;
    co_await output_->waiting_.wait();
  }
}

HttpOutput::HttpOutput(std::string format, std::function<bool(pid_t)> accepts)
    : format_(std::move(format)), accepts_(std::move(accepts)), parser_(make_live_format(format_)) {
  waker_ = spawn("viewers of an http output", wake_viewers());
}

void HttpOutput::connected() {
  silent_since_.reset();
  parser_->begin_run();
}

void HttpOutput::flush() {
  if (pending_.bytes.empty()) return;
  begun_ = true;
  ring_.push(std::exchange(pending_, {}), now(), !viewers_.empty());
  has_news_ = true;
  waker_waits_.wake_all();
}

Async<> HttpOutput::wake_viewers() {
  for (;;) {
    while (!has_news_) co_await waker_waits_.wait();
    has_news_ = false;
    const std::size_t at_once = std::max(min_woken_at_once, viewers_.size() / steps + 1);
    for (std::size_t woken = 0; woken < viewers_.size() && !waiting_.empty(); ++woken) {
      if (woken > 0 && woken % at_once == 0) co_await sleep(std::chrono::seconds(0));
      waiting_.wake_one();
    }
  }
}

void HttpOutput::disconnected() {
  flush();
  ring_.forbid_starts();
  silent_since_ = now();
}

void HttpOutput::send_viewers_away() {
  begun_ = false;
  ++period_;
  waiting_.wake_all();
}

void HttpOutput::end() {
  receiver_.close();
  waker_.kill();
  on_left = nullptr;
  send_viewers_away();
}

}  // namespace weir
