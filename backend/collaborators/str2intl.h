#pragma once

#include <set>

#include "backend/collaborators/value.h"

namespace weir {

/// The numbers that a field of a timetable names.
struct IntegerList {
  std::set<int> numbers;
  bool all = false;

  bool contains(int number) const { return all || numbers.contains(number); }
  bool empty() const noexcept { return !all && numbers.empty(); }
};

/// Reads a timetable's field: numbers from 0 to 9999 and ranges "30-45", separated by commas, with white space around
/// each; "*" is every number; null and blank texts are none, and a number stands for itself. Throws `ValueError` for
/// any other text and `TypeError` for any other kind.
IntegerList str2intl(const Value& text);

}  // namespace weir
