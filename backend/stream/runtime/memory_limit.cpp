#include "backend/stream/runtime/memory_limit.h"

#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

#include "backend/base/numbers.h"
#include "backend/base/text_form.h"
#include "backend/platform/failure.h"

namespace weir {

Value memory_limit(const Value& baseline) {
  constexpr long long min_headroom = 512;
  const double quarter = baseline.get<double>() * 0.25;
  if (quarter >= min_headroom) return baseline.get<double>() + quarter;
  if (baseline.is_number_integer()) return baseline.get<long long>() + min_headroom;
  return baseline.get<double>() + static_cast<double>(min_headroom);
}

std::optional<long long> digits_setting(const Value& setting) {
  if (!setting.is_string()) throw AttributeError("a number of a document has to be text, not " + to_text(setting));
  const auto& text = setting.get_ref<const std::string&>();
  if (!is_number(text)) return std::nullopt;
  return parse_integer(text).value_or(std::numeric_limits<long long>::max());
}

double queue_seconds(long long frames, double fps) {
  if (fps == 0) throw ZeroDivisionError("the first video stream has 0 frames a second");
  return std::floor(static_cast<double>(frames) / fps) + 1;
}

}  // namespace weir
