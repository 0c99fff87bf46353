#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "backend/base/value.h"

namespace weir {

/// One mapping of a document, as the command builder reads it. Every reader gives the member in the kind that is
/// wanted, or throws `ValueError` with a text that names the member by its dotted key. Forms come from a web page:
/// numbers and flags may be texts, and null or an empty text means that the member is not given.
///
/// Refers to the document and must not outlive it.
class Settings {
 public:
  /// `name` is the mapping's dotted key; anything but a mapping reads as an empty one.
  Settings(const Value& mapping, std::string name);

  bool has(std::string_view key) const;
  /// The member itself, null when it is absent.
  const Value& raw(std::string_view key) const;
  /// A text (or a number's text) on one line.
  std::string text(std::string_view key, std::string_view fallback = {}) const;
  /// A name such as that of an encoder: letters, digits and `_ . + - ,`, starting with a letter or digit.
  std::string word(std::string_view key, std::string_view fallback = {}) const;
  /// A whole number within the bounds.
  std::optional<long long> whole(std::string_view key, long long min, long long max) const;
  /// A number within the bounds, fractions included.
  std::optional<double> number(std::string_view key, double min, double max) const;
  bool flag(std::string_view key) const;
  Settings section(std::string_view key) const;

  const std::string& name() const noexcept { return name_; }
  /// Throws "video.map: has …".
  [[noreturn]] void refuse(std::string_view key, std::string_view why) const;
  /// Throws "video.map: VALUE is not …", or says that the member is missing.
  [[noreturn]] void refuse_value(std::string_view key, std::string_view why) const;

 private:
  const Value* mapping_;
  std::string name_;
};

/// Whether the text has a byte that no name, address or filter has: controls such as line ends, and zero.
bool has_control_characters(std::string_view text);

}  // namespace weir
