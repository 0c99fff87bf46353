#pragma once

#include <optional>

#include "backend/base/value.h"

namespace weir {

/// The limit that follows from a baseline, in MiB: a quarter more, at least 512 more. An integer when those 512 apply
/// to an integer, a fraction otherwise; the tie is a fraction.
Value memory_limit(const Value& baseline);

/// A setting that is a text of decimal digits, as an integer (the largest one when it is beyond any); nothing for any
/// other text. Throws `AttributeError` when it is no text.
std::optional<long long> digits_setting(const Value& setting);

/// Seconds of media that the frame queue of the logo removal holds, and one more: the memory has settled only when it
/// is full. Throws `ZeroDivisionError` for a frame rate of 0.
double queue_seconds(long long frames, double fps);

}  // namespace weir
