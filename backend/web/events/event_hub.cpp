#include "backend/web/events/event_hub.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "backend/base/text_form.h"
#include "backend/platform/sleep.h"
#include "backend/web/journal_json.h"

namespace weir {

namespace {

using namespace std::chrono_literals;

constexpr auto heartbeat_period = 15s;
// Whoever comes back within this time misses nothing.
constexpr auto kept_for_return = 2min;
// A thousand streams that start make thousands of entries: subscribers are not woken for each.
constexpr auto min_pause = 50ms;
constexpr std::size_t woken_at_once = 32;
constexpr std::size_t max_slices = 64;
constexpr std::size_t max_write = 256 * 1024;

constexpr std::string_view resync_event = "event: resync\ndata: {}\n\n";
constexpr std::string_view heartbeat = ":\n\n";

EventFrame make_entry_frame(const JournalEntry& entry) {
  EventFrame frame;
  Value value = to_value(entry);
  const bool is_status = entry.kind == JournalKind::status;
  if (is_status) {
    value["status"] = entry.text;
    for (const char* name : {"text", "description", "kind"}) value.erase(name);
  }
  frame.text =
      fmt::format("id: {}\nevent: {}\ndata: {}\n\n", entry.number, is_status ? "status" : "journal", to_json(value));
  frame.number = entry.number;
  frame.stream_id = entry.stream_id;
  return frame;
}

LiveSlice own(std::string text) {
  const auto owner = std::make_shared<const std::string>(std::move(text));
  return {owner, *owner};
}

}  // namespace

/// One subscriber's response.
class EventHub::Subscription : public LiveBody {
 public:
  Subscription(std::shared_ptr<EventHub> hub, Wish wish) : hub_(std::move(hub)), wish_(std::move(wish)) {
    begin();
    hub_->add_subscriber();
  }
  ~Subscription() override { hub_->remove_subscriber(); }

  int send_buffer_bytes() const override { return 128 * 1024; }

  Async<std::vector<LiveSlice>> next() override {
    std::vector<LiveSlice> slices = std::move(first_);
    first_.clear();
    while (slices.empty() && !hub_->ended_ && !lost_) {
      slices = read();
      if (slices.empty() && !lost_) co_await hub_->waiting_.wait();
    }
    co_return slices;
  }

 private:
  // Where the subscriber was, or else that it has to ask for everything anew.
  void begin() {
    const std::uint64_t latest = journal().next_number() - 1;
    next_entry_ = hub_->entries_.end();
    next_figures_ = hub_->figures_.end();
    std::string text = fmt::format("retry: 2000\nid: {}\n\n", wish_.last_number.value_or(latest));
    if (wish_.last_number && *wish_.last_number != latest) {
      const auto position = hub_->entries_.find(*wish_.last_number + 1);
      if (position) {
        next_entry_ = *position;
      } else {
        text += fmt::format("id: {}\n{}", latest, resync_event);
      }
    }
    first_.push_back(own(std::move(text)));
    if (const EventFramePointer frame = hub_->snapshot()) append(first_, frame);
  }

  std::vector<LiveSlice> read() {
    std::vector<LiveSlice> slices;
    if (hub_->entries_.has_lost(next_entry_) || hub_->figures_.has_lost(next_figures_)) {
      lost_ = true;
      ++hub_->lost_;
      slices.push_back({nullptr, resync_event});
      return slices;
    }
    std::size_t size = 0;
    const auto take_all = [&](const EventRing& ring, std::uint64_t& position) {
      for (; position < ring.end() && slices.size() < max_slices && size < max_write; ++position)
        size += append(slices, ring.at(position));
    };
    take_all(hub_->entries_, next_entry_);
    take_all(hub_->figures_, next_figures_);
    return slices;
  }

  // Returns the number of bytes.
  std::size_t append(std::vector<LiveSlice>& slices, const EventFramePointer& frame) const {
    const bool for_all = frame->parts.empty() && frame->number == 0;
    if (!wish_.streams || for_all) {
      slices.push_back({frame, frame->text});
    } else if (!frame->parts.empty()) {
      std::string text = narrow(*frame, *wish_.streams);
      if (text.empty()) return 0;
      slices.push_back(own(std::move(text)));
    } else {
      if (!frame->stream_id || !std::ranges::binary_search(*wish_.streams, *frame->stream_id)) return 0;
      slices.push_back({frame, frame->text});
    }
    return slices.back().bytes.size();
  }

  std::shared_ptr<EventHub> hub_;
  Wish wish_;
  std::vector<LiveSlice> first_;
  std::uint64_t next_entry_ = 0;
  std::uint64_t next_figures_ = 0;
  bool lost_ = false;
};

void EventHub::start(const StreamManager& manager) {
  figures_task_ = spawn("event figures", send_figures(shared_from_this(), manager));
  waker_ = spawn("event subscribers", wake_subscribers(shared_from_this()));
}

void EventHub::end() {
  ended_ = true;
  figures_task_.kill();
  waker_.kill();
  // What it holds may end before the task's frame does.
  seat_.reset();
  waiting_.wake_all();
}

std::unique_ptr<LiveBody> EventHub::subscribe(Wish wish) {
  if (subscribers_ >= max_subscribers) return nullptr;
  return std::make_unique<Subscription>(shared_from_this(), std::move(wish));
}

void EventHub::add_subscriber() {
  ++subscribers_;
  idle_.wake_all();
}

void EventHub::remove_subscriber() {
  if (--subscribers_ == 0) left_ = now();
}

bool EventHub::keeps_entries() {
  if (subscribers_ > 0) return true;
  if (left_ && now() - *left_ < kept_for_return) return true;
  if (left_) entries_.clear();
  left_.reset();
  return false;
}

void EventHub::read(const JournalEntry& entry) {
  if (!keeps_entries()) return;
  entries_.push(make_entry_frame(entry));
  if (subscribers_ > 0) announce();
}

void EventHub::announce() {
  has_news_ = true;
  waker_waits_.wake_all();
}

EventFramePointer EventHub::snapshot() {
  if (subscribers_ == 0) return nullptr;
  if (!snapshot_) snapshot_ = std::make_shared<const EventFrame>(deltas_.snapshot());
  return snapshot_->parts.empty() ? nullptr : snapshot_;
}

Async<> EventHub::send_figures(std::shared_ptr<EventHub> self, const StreamManager& manager) {
  for (;;) {
    while (self->subscribers_ == 0) co_await self->idle_.wait();
    co_await self->send_figures_while_subscribed(manager);
    self->seat_.reset();
    self->deltas_.forget();
    self->snapshot_.reset();
    self->figures_.clear();
  }
}

Async<> EventHub::send_figures_while_subscribed(const StreamManager& manager) {
  seat_ = feed_.hold();
  TimePoint last_heartbeat = now();
  while (subscribers_ > 0) {
    co_await feed_.next();
    std::optional<EventFrame> frame = co_await deltas_.next(manager.all_streams(), feed_);
    const bool is_heartbeat_due = now() - last_heartbeat >= heartbeat_period;
    if (is_heartbeat_due) {
      last_heartbeat = now();
      figures_.push({.text = std::string(heartbeat)});
    }
    if (frame) figures_.push(std::move(*frame));
    if (frame || is_heartbeat_due) announce();
    snapshot_.reset();
  }
}

// Each wake-up is a write to a socket. All at once would keep requests waiting.
Async<> EventHub::wake_subscribers(std::shared_ptr<EventHub> self) {
  for (;;) {
    while (!self->has_news_) co_await self->waker_waits_.wait();
    self->has_news_ = false;
    for (std::size_t woken = 0; woken < self->subscribers_ && !self->waiting_.empty(); ++woken) {
      if (woken > 0 && woken % woken_at_once == 0) co_await sleep(0s);
      self->waiting_.wake_one();
    }
    co_await sleep(min_pause);
  }
}

}  // namespace weir
