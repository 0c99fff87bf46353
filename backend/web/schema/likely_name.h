#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace weir {

/// How many letters have to be changed, added, left out or exchanged with their neighbour to make one text the other.
int count_edits(std::string_view from, std::string_view to);

/// The name that a wrong one was probably meant to be; empty when none is near.
std::string find_likely_name(std::string_view wrong, const std::vector<std::string>& names);

}  // namespace weir
