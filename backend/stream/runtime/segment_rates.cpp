#include "backend/stream/runtime/segment_rates.h"

#include <algorithm>

namespace weir {

void SegmentRates::complete(std::size_t variant, std::uint64_t bytes, TimePoint time) {
  if (variant >= variants_.size()) variants_.resize(variant + 1);
  Variant& of = variants_[variant];
  of.segments[of.count++ % of.segments.size()] = {time, bytes};
}

std::vector<std::optional<double>> SegmentRates::kilobits(TimePoint time) const {
  std::vector<std::optional<double>> rates;
  rates.reserve(variants_.size());
  for (const Variant& variant : variants_) rates.push_back(rate(variant, time));
  return rates;
}

// The first segment's bytes came before the time that is looked at.
std::optional<double> SegmentRates::rate(const Variant& variant, TimePoint time) {
  const std::size_t kept = std::min(variant.count, variant.segments.size());
  if (kept < 2) return std::nullopt;
  const std::size_t first = variant.count - kept;
  const auto segment = [&](std::size_t number) { return variant.segments[number % variant.segments.size()]; };
  double bits = 0;
  for (std::size_t i = first + 1; i < variant.count; ++i) bits += 8 * static_cast<double>(segment(i).bytes);
  const TimePoint last = segment(variant.count - 1).time;
  const std::chrono::duration<double> passed = last - segment(first).time;
  const std::chrono::duration<double> interval = passed / static_cast<double>(kept - 1);
  if (passed.count() <= 0 || time - last > 2 * interval + std::chrono::seconds(1)) return std::nullopt;
  return bits / 1000 / passed.count();
}

}  // namespace weir
