#include "backend/web/now/figure_series.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace weir {
namespace {

FigureValues viewers(double count) { return {1.0, {}, {}, {}, {}, count}; }

TEST(FigureSeriesTest, ValuesKeepTheirPrecisionInTwoBytes) {
  // The value, parts per unit, what is read.
  const std::tuple<double, double, double> cases[] = {
      {0, 1, 0},       {1.0, 1000, 1.0}, {0.987, 1000, 0.987}, {2047, 1, 2047},     {4095, 1, 4095},
      {4097, 1, 4098}, {8191, 1, 8192},  {103.4, 10, 103.4},   {8000.04, 10, 8000}, {-3, 10, 0}};
  for (const auto& [value, parts, expected] : cases)
    EXPECT_EQ(decode_figure(encode_figure(value, parts), parts), expected) << value;
  for (double value = 1; value < 4e12; value *= 1.37)
    EXPECT_NEAR(decode_figure(encode_figure(value, 1), 1).value(), value, std::max(0.5, value / 4000)) << value;
  for (const double huge : {4e12, 1e300, std::numeric_limits<double>::infinity()})
    EXPECT_NEAR(decode_figure(encode_figure(huge, 1), 1).value(), 4e12, 1e9) << huge;
  EXPECT_EQ(decode_figure(encode_figure(std::nan(""), 1), 1), std::nullopt);
  EXPECT_EQ(decode_figure(encode_figure(std::nullopt, 1), 1), std::nullopt);
}

TEST(FigureSeriesTest, AnHourIsKeptAndWhatWasNotSampledIsAGap) {
  FigureSeries series;
  series.put(1000, viewers(1));
  series.put(1001, viewers(2));
  series.put(1004, viewers(5));
  EXPECT_EQ(series.at(Figure::viewers, 1001), 2);
  EXPECT_EQ(series.at(Figure::speed, 1001), 1.0);
  EXPECT_EQ(series.at(Figure::fps, 1001), std::nullopt);
  for (const long long step : {999, 1002, 1003, 1005, -1}) EXPECT_EQ(series.at(Figure::viewers, step), std::nullopt);
  series.put(1000 + FigureSeries::steps, viewers(6));
  EXPECT_EQ(series.at(Figure::viewers, 1000), std::nullopt);
  EXPECT_EQ(series.at(Figure::viewers, 1001), 2);
  series.put(5000, viewers(7));
  EXPECT_EQ(series.at(Figure::viewers, 5000), 7);
  for (long long step = 4600; step < 5000; ++step) EXPECT_EQ(series.at(Figure::viewers, step), std::nullopt) << step;
}

TEST(FigureSeriesTest, AClockThatIsSetBackLeavesNoFiguresOfTheFuture) {
  for (const long long back : {3, 100000}) {
    FigureSeries series;
    for (long long step = 200000; step < 200000 + 2 * FigureSeries::steps; ++step) series.put(step, viewers(9));
    const long long step = series.newest() - back;
    series.put(step, viewers(1));
    EXPECT_EQ(series.at(Figure::viewers, step), 1);
    for (long long later = step + 1; later <= step + 3; ++later) {
      EXPECT_EQ(series.at(Figure::viewers, later), std::nullopt);
      EXPECT_EQ(series.at(Figure::viewers, later - FigureSeries::steps), std::nullopt);
    }
  }
}

}  // namespace
}  // namespace weir
