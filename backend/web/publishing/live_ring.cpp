#include "backend/web/publishing/live_ring.h"

#include <algorithm>

namespace weir {

namespace {

constexpr std::size_t max_slices = 32;

std::size_t size_of(const LiveChunk& chunk) { return chunk.bytes.size() + chunk.prologue.size(); }

}  // namespace

void LiveRing::push(LiveChunk chunk, TimePoint now, bool watched) {
  if (chunk.start) latest_start_ = end();
  bytes_ += size_of(chunk);
  entries_.push_back({std::make_shared<const LiveChunk>(std::move(chunk)), now});
  const TimePoint newest = latest_start_ >= first_ ? entries_[latest_start_ - first_].pushed : now;
  const auto unneeded = [&] {
    const bool for_new_readers = first_ >= std::max(latest_start_, first_start_);
    return !for_new_readers && (!watched || newest - entries_.front().pushed > limits_.lag);
  };
  while (!entries_.empty() && (bytes_ > limits_.bytes || unneeded())) drop_oldest();
}

void LiveRing::drop_oldest() {
  bytes_ -= size_of(*entries_.front().chunk);
  entries_.pop_front();
  ++first_;
}

LiveRing::Position LiveRing::begin() const {
  const bool has_start = latest_start_ >= std::max(first_, first_start_) && latest_start_ < end();
  return {has_start ? latest_start_ : end()};
}

std::vector<LiveSlice> LiveRing::read(Position& position, std::size_t max_bytes) const {
  std::vector<LiveSlice> slices;
  if (position.next < first_) {
    position.lost = position.begun;
    if (position.lost) return slices;
    position.next = first_;
  }
  for (std::size_t size = 0; position.next < end() && size < max_bytes && slices.size() < max_slices; ++position.next) {
    const std::shared_ptr<const LiveChunk>& chunk = entries_[position.next - first_].chunk;
    if (!position.begun && !chunk->start) continue;
    if (!position.begun && !chunk->prologue.empty()) slices.push_back({chunk, chunk->prologue});
    const std::string_view bytes = std::string_view(chunk->bytes).substr(position.begun ? 0 : *chunk->start);
    if (!bytes.empty()) slices.push_back({chunk, bytes});
    position.begun = true;
    size += bytes.size();
  }
  return slices;
}

}  // namespace weir
