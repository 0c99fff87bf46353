#include "backend/collaborators/utils.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "backend/platform/failure.h"

namespace weir {
namespace {

TEST(TimetableTest, ReadsNumbersRangesAndAll) {
  const IntegerList list = str2intl(" 0, 15,30-32 ");
  EXPECT_EQ(list.numbers.count(), 5u);
  for (const int number : {0, 15, 30, 31, 32}) EXPECT_TRUE(list.contains(number)) << number;
  EXPECT_TRUE(str2intl("*").contains(59));
  EXPECT_TRUE(str2intl(4).contains(4));
  EXPECT_TRUE(str2intl(nullptr).empty() && str2intl("  ").empty());
  for (const char* text : {"a", "1,", "3-1", "-1", "1-2-3", "60", "0-9999"})
    EXPECT_THROW(str2intl(text), ValueError) << text;
  EXPECT_THROW(str2intl(Value::array()), TypeError);
}

}  // namespace
}  // namespace weir
