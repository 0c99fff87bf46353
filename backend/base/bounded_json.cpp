#include "backend/base/bounded_json.h"

#include <fmt/core.h>

#include <nlohmann/json.hpp>
#include <unordered_map>
#include <utility>
#include <vector>

#include "backend/base/text_form.h"
#include "backend/platform/failure.h"

namespace weir {

namespace {

/// Builds a value from the parser's events within the bounds of a document. Finds a repeated key by its hash: the
/// mapping itself would look through all its members for each new one.
class BoundedBuilder : public nlohmann::json_sax<Value> {
 public:
  Value take() { return std::move(root_); }

  bool null() override { return add(nullptr); }
  bool boolean(bool value) override { return add(value); }
  bool number_integer(Value::number_integer_t value) override { return add(value); }
  bool number_unsigned(Value::number_unsigned_t value) override { return add(value); }
  bool number_float(Value::number_float_t value, const Value::string_t&) override { return add(value); }
  bool string(Value::string_t& value) override { return add(std::move(value)); }
  bool binary(Value::binary_t&) override { return false; }
  bool start_object(std::size_t) override { return open(Value::object()); }
  bool end_object() override { return close(); }
  bool start_array(std::size_t) override { return open(Value::array()); }
  bool end_array() override { return close(); }

  bool key(Value::string_t& name) override {
    if (++members_ > max_members) throw ValueError(fmt::format("more than {} members", max_members));
    Container& container = open_.back();
    auto& object = container.value->get_ref<Value::object_t&>();
    const auto [known, added] = container.positions.emplace(name, object.size());
    if (added) static_cast<Value::object_t::Container&>(object).emplace_back(std::move(name), nullptr);
    container.member = known->second;
    return true;
  }

  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception& error) override {
    const std::string_view text = error.what();
    const std::size_t prefix = text.find("] ");
    throw ValueError(std::string(prefix == std::string_view::npos ? text : text.substr(prefix + 2)));
  }

 private:
  struct Container {
    Value* value;
    std::unordered_map<std::string, std::size_t> positions;
    std::size_t member = 0;
  };

  Value& place(Value value) {
    if (open_.empty()) return root_ = std::move(value);
    Container& container = open_.back();
    if (container.value->is_array()) {
      if (++members_ > max_members) throw ValueError(fmt::format("more than {} members", max_members));
      return container.value->emplace_back(std::move(value));
    }
    auto& object = container.value->get_ref<Value::object_t&>();
    return (object.begin() + static_cast<std::ptrdiff_t>(container.member))->second = std::move(value);
  }

  bool add(Value value) {
    place(std::move(value));
    return true;
  }

  bool open(Value value) {
    if (open_.size() >= max_nesting) throw ValueError(fmt::format("nested deeper than {} levels", max_nesting));
    open_.push_back({&place(std::move(value)), {}});
    return true;
  }

  bool close() {
    open_.pop_back();
    return true;
  }

  Value root_;
  std::vector<Container> open_;
  std::size_t members_ = 0;
};

void count_members(const Value& value, std::size_t depth, std::size_t& members) {
  if (!value.is_structured()) return;
  if (depth >= max_nesting) throw ValueError(fmt::format("nested deeper than {} levels", max_nesting));
  members += value.size();
  if (members > max_members) throw ValueError(fmt::format("more than {} members", max_members));
  for (const Value& element : value) count_members(element, depth + 1, members);
}

}  // namespace

Value parse_json(std::string_view text) {
  if (text.size() > max_document_bytes) throw ValueError(fmt::format("larger than {} bytes", max_document_bytes));
  BoundedBuilder builder;
  Value::sax_parse(text.begin(), text.end(), &builder);
  return builder.take();
}

void check_bounds(const Value& value) {
  std::size_t members = 0;
  count_members(value, 0, members);
  if (to_json(value, true).size() > max_document_bytes) {
    throw ValueError(fmt::format("larger than {} bytes", max_document_bytes));
  }
}

}  // namespace weir
