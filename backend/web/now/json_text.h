#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "backend/platform/clock.h"

namespace weir {

/// Writes a JSON mapping into a text, member by member: for records that are made a thousand at a time.
class JsonMapping {
 public:
  explicit JsonMapping(std::string& json) : json_(json) { json_ += '{'; }
  ~JsonMapping() { json_ += '}'; }
  JsonMapping(const JsonMapping&) = delete;
  JsonMapping& operator=(const JsonMapping&) = delete;

  /// The value is JSON text.
  void add(std::string_view name, std::string_view value);
  void add_text(std::string_view name, std::string_view value);
  void add_flag(std::string_view name, bool value) { add(name, value ? "true" : "false"); }
  /// Rounded to so many decimals; null when it is nothing or no finite number.
  void add_number(std::string_view name, std::optional<double> value, int decimals);
  void add_number(std::string_view name, std::optional<long long> value);
  void add_time(std::string_view name, std::optional<WallTime> value);

 private:
  std::string& json_;
  bool is_first_ = true;
};

/// A mapping alone.
template <class Fill>
std::string make_json(const Fill& fill) {
  std::string json;
  {
    JsonMapping mapping(json);
    fill(mapping);
  }
  return json;
}

/// See `JsonMapping::add_number`.
void append_number(std::string& json, std::optional<double> value, int decimals);

}  // namespace weir
