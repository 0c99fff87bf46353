#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "backend/base/bounded_json.h"
#include "backend/base/numbers.h"
#include "backend/base/text_form.h"
#include "backend/base/time_text.h"
#include "backend/platform/failure.h"

namespace weir {
namespace {

using namespace std::chrono_literals;

TEST(ValueTest, ShowsValuesAsTexts) {
  using Case = std::pair<Value, const char*>;
  for (const auto& [value, text] :
       {Case{nullptr, "None"}, Case{true, "True"}, Case{false, "False"}, Case{1280, "1280"}, Case{-7, "-7"},
        Case{18446744073709551615U, "18446744073709551615"}, Case{2560.0, "2560.0"}, Case{2561.25, "2561.25"},
        Case{0.1, "0.1"}, Case{-0.0, "-0.0"}, Case{1e15, "1000000000000000.0"}, Case{1e16, "1e+16"},
        Case{0.0001, "0.0001"}, Case{0.00001, "1e-05"}, Case{1.5e300, "1.5e+300"}, Case{"a b", "a b"},
        Case{Value::array({1, "x"}), "[1,\"x\"]"}})
    EXPECT_EQ(to_text(value), text);
}

TEST(ValueTest, ReadsNumbersThatAreNothingElse) {
  using Case = std::pair<const char*, std::optional<double>>;
  for (const auto& [text, number] :
       {Case{"1.5", 1.5}, Case{" +2 ", 2}, Case{".5", 0.5}, Case{"5.", 5}, Case{"1e3", 1000}, Case{"-0.25", -0.25},
        Case{"123456789012345678", 123456789012345678.0}, Case{"1e999", INFINITY},
        Case{"0.30000000000000004", 0.30000000000000004}, Case{"", {}}, Case{".", {}}, Case{"1.2.3", {}},
        Case{"+-1", {}}, Case{"0x10", {}}, Case{"1 2", {}}, Case{"nan(1)", {}}, Case{"1,5", {}}})
    EXPECT_EQ(parse_float(text), number) << text;
  EXPECT_TRUE(std::isnan(*parse_float("nan")));
  EXPECT_EQ(parse_integer(" -12 "), -12);
  for (const char* text : {"", "1.0", "+-1", "99999999999999999999", "1a"}) EXPECT_FALSE(parse_integer(text)) << text;
}

TEST(ValueTest, ShowsTimesInUtcCutToMilliseconds) {
  EXPECT_EQ(to_iso8601(WallTime(951868799999ms) + 999us), "2000-02-29T23:59:59.999Z");
  EXPECT_EQ(to_iso8601(WallTime(-1ms)), "1969-12-31T23:59:59.999Z");
}

TEST(ValueTest, ReadsDocumentsWithinTheirBounds) {
  EXPECT_EQ(parse_json(R"({"b":1,"a":[{}, -1, 2.5, null, true, "x"],"b":2})").dump(),
            R"({"b":2,"a":[{},-1,2.5,null,true,"x"]})");
  EXPECT_NO_THROW(parse_json(std::string(64, '[') + std::string(64, ']')));
  EXPECT_EQ(parse_json("18446744073709551615"), 18446744073709551615U);
  std::string many = "{\"a\":0";
  for (int i = 0; i < 1'000; ++i) many += ",\"k" + std::to_string(i) + "\":1";
  for (const std::string& text :
       {many + "}", std::string(), std::string("{"), std::string("{}{}"), std::string("\"\xFF\""),
        std::string("-9223372036854775809"), std::string("18446744073709551616"),
        std::string(65, '[') + std::string(65, ']'), std::string(1 << 21, ' ')})
    EXPECT_THROW(parse_json(text), ValueError) << text.substr(0, 20);
}

}  // namespace
}  // namespace weir
