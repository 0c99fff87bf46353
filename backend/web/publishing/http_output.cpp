#include "backend/web/publishing/http_output.h"

namespace weir {

namespace {

constexpr std::size_t max_write = 256 * 1024;

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
    : format_(std::move(format)), accepts_(std::move(accepts)), parser_(make_live_format(format_)) {}

void HttpOutput::connected() {
  silent_since_.reset();
  parser_->begin_run();
}

void HttpOutput::flush() {
  if (pending_.bytes.empty()) return;
  begun_ = true;
  ring_.push(std::exchange(pending_, {}), now(), !viewers_.empty());
  waiting_.wake_all();
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
  on_left = nullptr;
  send_viewers_away();
}

}  // namespace weir
