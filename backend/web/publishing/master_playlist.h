#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "backend/base/value.h"

namespace weir {

/// A segment as the bit rate sees it.
struct SegmentSize {
  double duration = 0;  ///< seconds
  std::uint64_t bytes = 0;
};

/// The bit rates of a variant in bit/s, as RFC 8216 defines them (4.3.4.2); 0 when unknown.
struct VariantRate {
  long long peak = 0;
  long long average = 0;
};

/// `peak` is the largest rate of any run of segments that lasts half to one and a half target durations; of the whole
/// list when there is no such run.
VariantRate measure_rate(const std::vector<SegmentSize>& segments, int target_duration);

/// What is in a variant's segments.
struct VariantMedia {
  std::string codecs;  ///< as RFC 6381 names them, separated by commas; empty when one of them is unknown
  long long width = 0;
  long long height = 0;
  double frame_rate = 0;
};

/// Reads it from the description of a segment, as `GET /api/probe` answers it.
VariantMedia read_variant_media(const Value& description);

/// One variant of a master playlist.
struct Variant {
  std::size_t rendition = 0;
  VariantRate rate;
  VariantMedia media;
};

std::string format_master_playlist(const std::vector<Variant>& variants, bool independent_segments);

}  // namespace weir
