#include "backend/base/bounded_json.h"

#include <fmt/core.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "backend/base/indexed_mapping.h"
#include "backend/base/large_json.h"
#include "backend/base/text_form.h"
#include "backend/platform/failure.h"

namespace weir {

namespace {

/// Builds a value from the parser's events within the bounds of a document, or of many.
class BoundedBuilder : public nlohmann::json_sax<Value> {
 public:
  explicit BoundedBuilder(std::size_t members) : max_members_(members) {}
  Value take() { return std::move(root_); }

  bool null() override { return add(nullptr); }
  bool boolean(bool value) override { return add(value); }
  bool number_integer(Value::number_integer_t value) override { return add(value); }
  bool number_unsigned(Value::number_unsigned_t value) override { return add(value); }
  bool number_float(Value::number_float_t value, const Value::string_t& text) override {
    if (text.find_first_of(".eE") == std::string::npos) throw ValueError(at_key("an integer beyond 64 bits"));
    return add(value);
  }
  bool string(Value::string_t& value) override { return add(std::move(value)); }
  bool binary(Value::binary_t&) override { return false; }
  bool start_object(std::size_t) override { return open(Value::object()); }
  bool end_object() override { return close(); }
  bool start_array(std::size_t) override { return open(Value::array()); }
  bool end_array() override { return close(); }

  bool key(Value::string_t& name) override {
    count_member();
    Container& mapping = open_.back();
    if (mapping.value.size() == max_mapping_members && !mapping.members->find(name)) {
      open_.pop_back();
      throw ValueError(at_key(fmt::format("more than {} members in one mapping", max_mapping_members)));
    }
    mapping.next = &(*mapping.members)[name];
    mapping.next_name = std::move(name);
    return true;
  }

  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception& error) override {
    const std::string_view text = error.what();
    const std::size_t prefix = text.find("] ");
    throw ValueError(std::string(prefix == std::string_view::npos ? text : text.substr(prefix + 2)));
  }

 private:
  struct Container {
    explicit Container(Value empty) : value(std::move(empty)) {
      if (value.is_object()) members.emplace(value);
    }

    Value value;
    std::optional<IndexedMapping> members{};  ///< of a mapping
    Value* next = nullptr;                    ///< the member whose value comes next
    std::string next_name{};
  };

  void count_member() {
    if (++members_ > max_members_) throw ValueError(fmt::format("more than {} members", max_members_));
  }

  // "input.0.url: …"; the text alone for the whole document.
  std::string at_key(const std::string& text) const {
    std::string key;
    for (const Container& container : open_) {
      if (!key.empty()) key += '.';
      key += container.members ? container.next_name : std::to_string(container.value.size());
    }
    return key.empty() ? text : key + ": " + text;
  }

  bool add(Value value) {
    if (open_.empty()) {
      root_ = std::move(value);
    } else if (Container& container = open_.back(); container.members) {
      *container.next = std::move(value);
    } else {
      count_member();
      container.value.push_back(std::move(value));
    }
    return true;
  }

  bool open(Value empty) {
    if (open_.size() >= max_nesting) throw ValueError(fmt::format("nested deeper than {} levels", max_nesting));
    open_.emplace_back(std::move(empty));
    return true;
  }

  bool close() {
    Value value = std::move(open_.back().value);
    open_.pop_back();
    return add(std::move(value));
  }

  Value root_;
  std::vector<Container> open_;
  const std::size_t max_members_;
  std::size_t members_ = 0;
};

Value parse_within(std::string_view text, std::size_t bytes, std::size_t members) {
  if (text.size() > bytes) throw ValueError(fmt::format("larger than {} bytes", bytes));
  BoundedBuilder builder(members);
  Value::sax_parse(text.begin(), text.end(), &builder);
  return builder.take();
}

void count_members(const Value& value, std::size_t depth, std::size_t headroom, std::size_t& members) {
  if (!value.is_structured()) return;
  if (depth >= max_nesting) throw ValueError(fmt::format("nested deeper than {} levels", max_nesting));
  if (value.is_object() && value.size() + headroom > max_mapping_members)
    throw ValueError(fmt::format("more than {} members in one mapping", max_mapping_members - headroom));
  members += value.size();
  if (members + headroom > max_members) throw ValueError(fmt::format("more than {} members", max_members - headroom));
  for (const Value& element : value) count_members(element, depth + 1, headroom, members);
}

}  // namespace

Value parse_json(std::string_view text) { return parse_within(text, max_document_bytes, max_members); }

Value parse_large_json(std::string_view text) { return parse_within(text, max_import_bytes, max_import_members); }

void check_bounds(const Value& value) {
  check_members(value);
  // A file ends with a line break.
  if (to_json(value, true).size() + 1 > max_document_bytes)
    throw ValueError(fmt::format("larger than {} bytes", max_document_bytes));
}

void check_members(const Value& value, std::size_t headroom) {
  std::size_t members = 0;
  count_members(value, 0, headroom, members);
}

}  // namespace weir
