#include "backend/stream/runtime/segment_window.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "backend/base/numbers.h"

namespace weir {

namespace {

// The decimal digits at the start of the text, which are cut off.
std::string_view take_digits(std::string_view& text) {
  const std::size_t count = std::min(text.find_first_not_of("0123456789"), text.size());
  const std::string_view digits = text.substr(0, count);
  text.remove_prefix(count);
  return digits;
}

bool take(std::string_view& text, std::string_view expected) {
  if (!text.starts_with(expected)) return false;
  text.remove_prefix(expected.size());
  return true;
}

}  // namespace

std::optional<SegmentName> parse_segment_name(std::string_view name) {
  if (!take(name, "playlist_")) return std::nullopt;
  const std::string_view variant = take_digits(name);
  if (variant.empty() || !take(name, "_")) return std::nullopt;
  const std::string_view number = take_digits(name);
  if (number.empty() || !name.starts_with(".ts")) return std::nullopt;
  SegmentName segment{std::numeric_limits<std::size_t>::max(), std::string(number)};
  std::from_chars(variant.data(), variant.data() + variant.size(), segment.variant);
  return segment;
}

SegmentWindow::SegmentWindow(std::vector<int> list_sizes)
    : list_sizes_(std::move(list_sizes)), segments_(list_sizes_.size()) {}

std::optional<std::string> SegmentWindow::complete(const std::string& name) {
  if (read_again_.erase(name) > 0) return std::nullopt;
  const auto segment = parse_segment_name(name);
  if (!segment || segment->variant >= segments_.size()) return std::nullopt;
  return append(segment->variant, name);
}

std::vector<std::string> SegmentWindow::read_again(const std::vector<std::string>& names) {
  std::vector<std::pair<SegmentName, std::string>> missed;
  for (const std::string& name : names) {
    const auto segment = parse_segment_name(name);
    if (!segment || segment->variant >= segments_.size()) continue;
    if (std::ranges::find(segments_[segment->variant], name) == segments_[segment->variant].end()) {
      missed.emplace_back(*segment, name);
    }
  }
  std::ranges::sort(missed, [](const auto& left, const auto& right) {
    return compare_numbers(left.first.number, right.first.number) < 0;
  });
  std::vector<std::string> deletions;
  for (const auto& [segment, name] : missed) {
    read_again_.insert(name);
    if (auto oldest = append(segment.variant, name)) deletions.push_back(std::move(*oldest));
  }
  return deletions;
}

std::optional<std::string> SegmentWindow::append(std::size_t variant, const std::string& name) {
  std::deque<std::string>& segments = segments_[variant];
  segments.push_back(name);
  if (static_cast<long long>(segments.size()) <= static_cast<long long>(list_sizes_[variant]) + 1) return std::nullopt;
  std::string oldest = std::move(segments.front());
  segments.pop_front();
  return oldest;
}

}  // namespace weir
