#include "backend/platform/line_reader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace weir {
namespace {

std::vector<std::string> split(const std::vector<std::string>& chunks) {
  LineSplitter splitter;
  std::vector<std::string> lines;
  for (const std::string& chunk : chunks) {
    splitter.feed(chunk);
    while (auto line = splitter.next()) lines.push_back(*line);
  }
  splitter.finish();
  while (auto line = splitter.next()) lines.push_back(*line);
  return lines;
}

TEST(LineSplitterTest, EndsLinesAtEveryKindOfEnd) {
  using Case = std::pair<std::vector<std::string>, std::vector<std::string>>;
  const std::string replaced = "\xEF\xBF\xBD";
  for (const auto& [chunks, lines] : {
           Case{{"a\nb\rc\r\nd"}, {"a\n", "b\n", "c\n", "d"}},
           Case{{"a\r", "\nb\n"}, {"a\n", "b\n"}},
           Case{{"a\r", "b"}, {"a\n", "b"}},
           Case{{"\n\r\r\n"}, {"\n", "\n", "\n"}},
           Case{{"a", "b", "\n"}, {"ab\n"}},
           Case{{"\xFF\xC3\xA9\xC3\n"}, {replaced + "\xC3\xA9" + replaced + "\n"}},
           Case{{"\xC3", "\xA9\n"}, {"\xC3\xA9\n"}},
           Case{{"\xED\xA0\x80\n"}, {replaced + replaced + replaced + "\n"}},
           Case{{std::string("a\0b\n", 4)}, {std::string("a\0b\n", 4)}},
       })
    EXPECT_EQ(split(chunks), lines);
}

}  // namespace
}  // namespace weir
