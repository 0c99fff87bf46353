#include "backend/web/publishing/viewers.h"

namespace weir {

namespace {

template <class Key>
void decrement(std::unordered_map<Key, std::size_t>& counts, const Key& key) {
  const auto found = counts.find(key);
  if (found != counts.end() && --found->second == 0) counts.erase(found);
}

template <class Key>
std::size_t count_of(const std::unordered_map<Key, std::size_t>& counts, const Key& key) {
  const auto found = counts.find(key);
  return found == counts.end() ? 0 : found->second;
}

bool is_below(std::size_t count, std::size_t limit) { return limit == 0 || count < limit; }

}  // namespace

Viewers::Seat::Seat(std::shared_ptr<Viewers> viewers, long long stream_id, std::string address)
    : viewers_(std::move(viewers)), stream_id_(stream_id), address_(std::move(address)) {
  viewers_->count(stream_id_, address_);
}

Viewers::Seat::~Seat() { viewers_->discount(stream_id_, address_); }

bool Viewers::admit_hls(long long stream_id, const std::string& address, std::chrono::nanoseconds timeout) {
  const auto viewer = std::make_pair(stream_id, address);
  const TimePoint until = now() + timeout;
  if (const auto known = hls_.find(viewer); known != hls_.end()) {
    known->second = until;
    return true;
  }
  if (!has_room(stream_id, address)) forget_gone();
  if (!has_room(stream_id, address)) return false;
  count(stream_id, address);
  hls_.emplace(viewer, until);
  return true;
}

std::unique_ptr<Viewers::Seat> Viewers::admit_http(long long stream_id, const std::string& address) {
  if (!has_room(stream_id, address)) forget_gone();
  if (!has_room(stream_id, address)) return nullptr;
  return std::make_unique<Seat>(shared_from_this(), stream_id, address);
}

void Viewers::forget_gone() {
  std::erase_if(hls_, [this](const auto& viewer) {
    const bool is_gone = viewer.second < now();
    if (is_gone) discount(viewer.first.first, viewer.first.second);
    return is_gone;
  });
}

bool Viewers::has_room(long long stream_id, const std::string& address) const {
  return is_below(total_, limits_.total) && is_below(count_of(by_stream_, stream_id), limits_.per_stream) &&
         is_below(count_of(by_address_, address), limits_.per_address);
}

void Viewers::count(long long stream_id, const std::string& address) {
  ++total_;
  ++by_stream_[stream_id];
  ++by_address_[address];
}

void Viewers::discount(long long stream_id, const std::string& address) {
  --total_;
  decrement(by_stream_, stream_id);
  decrement(by_address_, address);
}

}  // namespace weir
