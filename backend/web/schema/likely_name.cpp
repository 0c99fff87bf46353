#include "backend/web/schema/likely_name.h"

#include <algorithm>
#include <boost/algorithm/string/case_conv.hpp>
#include <locale>
#include <numeric>

namespace weir {

int count_edits(std::string_view from, std::string_view to) {
  // Rows of the table of the edits that make each beginning of `from` each beginning of `to`.
  std::vector<int> before_last;
  std::vector<int> last(to.size() + 1);
  std::iota(last.begin(), last.end(), 0);
  for (std::size_t i = 0; i < from.size(); ++i) {
    std::vector<int> row{static_cast<int>(i) + 1};
    for (std::size_t k = 0; k < to.size(); ++k) {
      int edits = std::min({last[k] + (from[i] == to[k] ? 0 : 1), last[k + 1] + 1, row[k] + 1});
      const bool exchanged = i > 0 && k > 0 && from[i] == to[k - 1] && from[i - 1] == to[k];
      if (exchanged) edits = std::min(edits, before_last[k - 1] + 1);
      row.push_back(edits);
    }
    before_last = std::move(last);
    last = std::move(row);
  }
  return last.back();
}

std::string find_likely_name(std::string_view wrong, const std::vector<std::string>& names) {
  constexpr std::size_t max_bytes = 40;
  if (wrong.size() > max_bytes) return {};
  const std::string plain = boost::to_lower_copy(std::string(wrong), std::locale::classic());
  int fewest = std::max(1, static_cast<int>(wrong.size()) / 3);
  std::string likely;
  for (const std::string& name : names) {
    const int edits = count_edits(plain, name);
    if (edits > fewest || (edits == fewest && !likely.empty())) continue;
    fewest = edits;
    likely = name;
  }
  return likely;
}

}  // namespace weir
