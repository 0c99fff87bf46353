#include "backend/web/events/event_frame.h"

#include <algorithm>

namespace weir {

std::size_t EventRing::size_of(const EventFrame& frame) {
  return sizeof frame + frame.text.size() + frame.parts.size() * sizeof(EventFrame::Part);
}

void EventRing::push(EventFrame frame) {
  bytes_ += size_of(frame);
  frames_.push_back(std::make_shared<const EventFrame>(std::move(frame)));
  while (frames_.size() > limits_.frames || bytes_ > limits_.bytes) {
    bytes_ -= size_of(*frames_.front());
    frames_.pop_front();
    ++first_;
  }
}

void EventRing::clear() {
  first_ = end();
  frames_.clear();
  bytes_ = 0;
}

std::optional<std::uint64_t> EventRing::find(std::uint64_t number) const {
  const auto found = std::ranges::lower_bound(frames_, number, {}, [](const auto& frame) { return frame->number; });
  if (found == frames_.end() || (*found)->number != number) return std::nullopt;
  return first_ + static_cast<std::uint64_t>(found - frames_.begin());
}

}  // namespace weir
