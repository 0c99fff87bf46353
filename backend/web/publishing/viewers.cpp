#include "backend/web/publishing/viewers.h"

#include <fmt/core.h>

#include "backend/collaborators/journal.h"

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
  if (!admits(stream_id, address)) return false;
  count(stream_id, address);
  hls_.emplace(viewer, until);
  return true;
}

std::unique_ptr<Viewers::Seat> Viewers::admit_http(long long stream_id, const std::string& address) {
  if (!admits(stream_id, address)) return nullptr;
  return std::make_unique<Seat>(shared_from_this(), stream_id, address);
}

void Viewers::forget_gone() {
  std::erase_if(hls_, [this](const auto& viewer) {
    const bool is_gone = viewer.second < now();
    if (is_gone) discount(viewer.first.first, viewer.first.second);
    return is_gone;
  });
}

bool Viewers::admits(long long stream_id, const std::string& address) {
  if (find_reached_limit(stream_id, address).empty()) return true;
  forget_gone();
  const std::string limit = find_reached_limit(stream_id, address);
  if (!limit.empty()) tell_refusal(stream_id, limit);
  return limit.empty();
}

std::string Viewers::find_reached_limit(long long stream_id, const std::string& address) const {
  if (!is_below(total_, limits_.total)) return fmt::format("{} viewers in all", limits_.total);
  if (!is_below(count_of(by_stream_, stream_id), limits_.per_stream))
    return fmt::format("{} viewers of the stream", limits_.per_stream);
  if (!is_below(count_of(by_address_, address), limits_.per_address))
    return fmt::format("{} viewers from one address", limits_.per_address);
  return {};
}

// At most once a minute for each stream: players try again and again.
void Viewers::tell_refusal(long long stream_id, const std::string& limit) {
  const auto [entry, is_first] = refusals_.try_emplace(stream_id);
  Refusals& refusals = entry->second;
  ++refusals.since;
  if (!is_first && now() - refusals.told < std::chrono::minutes(1)) return;
  journal().record(
      {.kind = JournalKind::notice,
       .stream_id = stream_id,
       .text = fmt::format("viewers are refused: the limit of {} is reached ({} refusals)", limit, refusals.since)});
  refusals = {.told = now()};
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
