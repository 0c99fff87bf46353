#include "backend/web/byte_range.h"

#include <gtest/gtest.h>

namespace weir {
namespace {

TEST(ParseRange, AnswersOneRangeAndIgnoresWhatItCannotRead) {
  const std::tuple<const char*, std::uint64_t, std::optional<std::pair<std::uint64_t, std::uint64_t>>> cases[] = {
      {"bytes=2-4", 10, {{2, 3}}},     {"bytes=2-99", 10, {{2, 8}}},
      {"bytes=-3", 10, {{7, 3}}},      {"bytes=99999999999999999999999-", 10, {{10, 0}}},
      {"bytes=-0", 10, {{10, 0}}},     {"bytes=0-", 0, {{0, 0}}},
      {"bytes=4-2", 10, std::nullopt}, {"bytes=1-2,5-6", 10, std::nullopt},
      {"bytes=a-b", 10, std::nullopt}, {"lines=1-2", 10, std::nullopt}};
  for (const auto& [header, file_size, expected] : cases) {
    const auto range = parse_range(header, file_size);
    ASSERT_EQ(range.has_value(), expected.has_value()) << header;
    if (range) EXPECT_EQ(std::pair(range->offset, range->size), *expected) << header;
  }
}

}  // namespace
}  // namespace weir
