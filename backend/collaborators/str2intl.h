#pragma once

#include <bitset>

#include "backend/collaborators/value.h"

namespace weir {

/// The numbers from 0 to 59 that a field of a timetable names.
struct IntegerList {
  std::bitset<60> numbers;

  bool contains(int number) const { return number >= 0 && number < 60 && numbers[static_cast<std::size_t>(number)]; }
  bool empty() const noexcept { return numbers.none(); }
};

/// Reads a timetable's field: numbers from 0 to 59 and ranges "30-45", separated by commas, with white space around
/// each; "*" is every number; null and blank texts are none, and a number stands for itself. Throws `ValueError` for
/// any other text, and for one of more than 1024 bytes, and `TypeError` for any other kind.
IntegerList str2intl(const Value& text);

}  // namespace weir
