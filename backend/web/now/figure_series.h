#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace weir {

/// A figure of a stream that is sampled. `to_word` gives its name in the API.
enum class Figure {
  speed,    ///< media time against the clock's
  fps,      ///< frames per second
  bitrate,  ///< kbit/s
  cpu,      ///< of the transcoder, in percent of one processor
  memory,   ///< resident, of the transcoder, in MiB
  viewers,
};
inline constexpr std::size_t figure_count = 6;
std::string_view to_word(Figure figure);
std::optional<Figure> parse_figure(std::string_view word);

/// One sample of all figures, in the order of `Figure`; nothing where a figure is not known.
using FigureValues = std::array<std::optional<double>, figure_count>;

/// The figures of a stream's last hour in steps of 10 s, two bytes a value: small values as finely as they are shown,
/// large ones to one part in 4,000. Steps are counted from the Unix epoch, so that the series of all streams are
/// aligned.
class FigureSeries {
 public:
  static constexpr long long steps = 360;
  static constexpr int step_seconds = 10;

  FigureSeries();
  /// Steps between the newest one and this become gaps. A step before the newest one (the clock was set back) becomes
  /// the newest.
  void put(long long step, const FigureValues& values);
  /// Nothing for a gap and outside the hour that ends with the newest step.
  std::optional<double> at(Figure figure, long long step) const;
  long long newest() const noexcept { return newest_; }

 private:
  using Code = std::uint16_t;
  void clear(long long step);

  std::array<std::array<Code, steps>, figure_count> codes_;
  long long newest_ = -1;
};

/// The codes of the series. Negative values count as 0; what is no number is a gap.
std::uint16_t encode_figure(std::optional<double> value, double parts_per_unit);
std::optional<double> decode_figure(std::uint16_t code, double parts_per_unit);

}  // namespace weir
