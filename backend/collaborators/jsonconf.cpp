#include "backend/collaborators/jsonconf.h"

#include <fmt/core.h>

#include <nlohmann/json.hpp>
#include <system_error>

#include "backend/base/bounded_json.h"
#include "backend/base/text_form.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"

namespace weir {

namespace {

bool frozen_documents = false;

const Value null_value;

}  // namespace

JsonConf::JsonConf(std::string file, Error* error_handler)
    : Error(error_handler), filename(std::move(file)), document_(std::make_unique<Value>(Value::object())) {}

JsonConf::~JsonConf() = default;

bool JsonConf::load_json_conf() {
  try {
    Value document = parse_json(read_file(filename, max_document_bytes));
    if (!document.is_object()) throw ValueError("not a JSON object");
    *document_ = std::move(document);
    return true;
  } catch (const std::system_error& failure) {
    set_error_msg(fmt::format("Failed to read {}", failure.what()));
  } catch (const ValueError& failure) {
    set_error_msg(fmt::format("Invalid document {}: {}", filename, failure.what()));
  }
  return false;
}

bool JsonConf::load_json_conf(const Value& form) {
  if (!form.is_object()) {
    set_error_msg("Invalid form: not a mapping");
    return false;
  }
  for (const auto& [key, value] : form.items()) {
    if (!set_json_conf(key, value)) return false;
  }
  try {
    check_bounds(*document_);
    return true;
  } catch (const ValueError& failure) {
    set_error_msg(fmt::format("Invalid form: the document would be {}", failure.what()));
    return false;
  }
}

const Value& JsonConf::get_json_conf(std::string_view key) const {
  const Value* found = find(key);
  return found ? *found : null_value;
}

Value JsonConf::get_json_conf(std::string_view key, Value fallback) const {
  const Value* found = find(key);
  if (found) return *found;
  return fallback;
}

bool JsonConf::set_json_conf(std::string_view key, Value value) {
  std::string_view last;
  Value* parent = find_or_create_parent(key, last);
  if (!parent) {
    set_error_msg(fmt::format("Invalid key {}", key));
    return false;
  }
  (*parent)[std::string(last)] = std::move(value);
  return true;
}

bool JsonConf::del_json_conf(std::string_view key) {
  const std::size_t dot = key.rfind('.');
  const std::string_view last = dot == std::string_view::npos ? key : key.substr(dot + 1);
  Value* parent = dot == std::string_view::npos ? document_.get() : find(key.substr(0, dot));
  if (parent && parent->is_object()) parent->erase(std::string(last));
  return true;
}

bool JsonConf::save_json_conf() {
  if (frozen_documents || retired_) {
    set_error_msg(fmt::format("{} is not written: {}", filename, retired_ ? "it was deleted" : "the server is ending"));
    return false;
  }
  try {
    // Documents hold stream keys and passwords.
    replace_file(filename, to_json(*document_, true) + "\n", 0600);
    return true;
  } catch (const std::system_error& failure) {
    set_error_msg(fmt::format("Failed to write {}", failure.what()));
    return false;
  }
}

void JsonConf::freeze_all(bool frozen) noexcept { frozen_documents = frozen; }

// The document belongs to this object: whether its members may change is the caller's constness.
Value* JsonConf::find(std::string_view key) const {
  Value* at = document_.get();
  for (;;) {
    const std::size_t dot = key.find('.');
    if (!at->is_object()) return nullptr;
    const auto found = at->find(key.substr(0, dot));
    if (found == at->end()) return nullptr;
    at = &*found;
    if (dot == std::string_view::npos) return at;
    key.remove_prefix(dot + 1);
  }
}

// The mapping that holds the key's last segment; null when the way to it is barred.
Value* JsonConf::find_or_create_parent(std::string_view key, std::string_view& last) {
  if (key.empty() || key.starts_with('.') || key.ends_with('.') || key.find("..") != std::string_view::npos)
    return nullptr;
  Value* at = document_.get();
  for (std::size_t depth = 1; depth <= max_nesting; ++depth) {
    if (!at->is_object()) return nullptr;
    const std::size_t dot = key.find('.');
    last = key.substr(0, dot);
    if (dot == std::string_view::npos) return at;
    const auto [next, created] = at->emplace(std::string(last), Value::object());
    at = &*next;
    key.remove_prefix(dot + 1);
  }
  return nullptr;
}

}  // namespace weir
