#include "backend/web/now/figure_series.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace weir {

namespace {

struct FigureForm {
  std::string_view word;
  double parts_per_unit;  ///< how finely it is kept
};

// In the order of the enum.
constexpr std::array<FigureForm, figure_count> forms{
    {{"speed", 1000}, {"fps", 100}, {"bitrate", 10}, {"cpu", 10}, {"memory", 10}, {"viewers", 1}}};

const FigureForm& form_of(Figure figure) { return forms[static_cast<std::size_t>(figure)]; }

// A code is a small binary fraction number without a sign: 5 bits of exponent and 11 of mantissa, whose first bit is
// not kept. The exponent 0 means the mantissa itself. Codes ascend with their values.
constexpr int mantissa_bits = 11;
constexpr std::uint64_t implied_bit = 1U << mantissa_bits;
constexpr std::uint16_t gap = 0xFFFF;
constexpr double max_parts = 4e12;  // below the value of the gap's code

std::size_t index_of(long long step) { return static_cast<std::size_t>(step % FigureSeries::steps); }

}  // namespace

std::string_view to_word(Figure figure) { return form_of(figure).word; }

std::optional<Figure> parse_figure(std::string_view word) {
  const auto found = std::ranges::find(forms, word, &FigureForm::word);
  if (found == forms.end()) return std::nullopt;
  return static_cast<Figure>(found - forms.begin());
}

std::uint16_t encode_figure(std::optional<double> value, double parts_per_unit) {
  if (!value || std::isnan(*value)) return gap;
  const auto parts = static_cast<std::uint64_t>(std::llround(std::clamp(*value * parts_per_unit, 0.0, max_parts)));
  if (parts < implied_bit) return static_cast<std::uint16_t>(parts);
  const int shift = std::bit_width(parts) - mantissa_bits - 1;
  // What is rounded up to another bit carries into the exponent, as it should.
  const std::uint64_t mantissa = (parts + ((std::uint64_t{1} << shift) >> 1)) >> shift;
  return static_cast<std::uint16_t>((static_cast<std::uint64_t>(shift) << mantissa_bits) + mantissa);
}

std::optional<double> decode_figure(std::uint16_t code, double parts_per_unit) {
  if (code == gap) return std::nullopt;
  const int exponent = code >> mantissa_bits;
  const std::uint64_t mantissa = code & (implied_bit - 1);
  const std::uint64_t parts = exponent == 0 ? mantissa : (implied_bit + mantissa) << (exponent - 1);
  return static_cast<double>(parts) / parts_per_unit;
}

FigureSeries::FigureSeries() {
  for (auto& codes : codes_) codes.fill(gap);
}

void FigureSeries::clear(long long step) {
  for (auto& codes : codes_) codes[index_of(step)] = gap;
}

void FigureSeries::put(long long step, const FigureValues& values) {
  const bool goes_on = step > newest_;
  const long long first = goes_on ? std::max(newest_ + 1, step - steps + 1) : step + 1;
  const long long end = goes_on ? step : std::min(newest_ + 1, step + steps);
  for (long long other = first; other < end; ++other) clear(other);
  for (std::size_t i = 0; i < figure_count; ++i) {
    codes_[i][index_of(step)] = encode_figure(values[i], forms[i].parts_per_unit);
  }
  newest_ = step;
}

std::optional<double> FigureSeries::at(Figure figure, long long step) const {
  if (step > newest_ || step <= newest_ - steps || step < 0) return std::nullopt;
  const auto i = static_cast<std::size_t>(figure);
  return decode_figure(codes_[i][index_of(step)], forms[i].parts_per_unit);
}

}  // namespace weir
