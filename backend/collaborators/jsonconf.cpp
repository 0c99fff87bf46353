#include "backend/collaborators/jsonconf.h"

#include <fmt/core.h>

#include <nlohmann/json.hpp>
#include <system_error>
#include <unordered_map>
#include <utility>

#include "backend/base/bounded_json.h"
#include "backend/base/indexed_mapping.h"
#include "backend/base/text_form.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"

namespace weir {

namespace {

bool frozen_documents = false;

const Value null_value;

std::string invalid_key(std::string_view key) { return fmt::format("Invalid key {}", key); }

bool has_empty_segment(std::string_view key) {
  return key.empty() || key.starts_with('.') || key.ends_with('.') || key.find("..") != std::string_view::npos;
}

/// Stores values at dotted keys, any number of them in time linear in the document and the keys.
class DottedWriter {
 public:
  explicit DottedWriter(Value& mapping) : root_(mapping) {}

  /// False when the key has an empty segment, is too deep or leads through a value that is neither a mapping nor null.
  bool set(std::string_view key, Value value) {
    if (has_empty_segment(key)) return false;
    Node* at = &root_;
    for (std::size_t depth = 1; depth <= max_nesting; ++depth) {
      const std::size_t dot = key.find('.');
      const std::string name(key.substr(0, dot));
      Value& member = at->members[name];
      if (dot == std::string_view::npos) {
        member = std::move(value);
        at->below.erase(name);
        return true;
      }
      if (member.is_null()) member = Value::object();
      if (!member.is_object()) return false;
      std::unique_ptr<Node>& next = at->below[name];
      if (!next) next = std::make_unique<Node>(member);
      at = next.get();
      key.remove_prefix(dot + 1);
    }
    return false;
  }

 private:
  struct Node {
    explicit Node(Value& mapping) : members(mapping) {}
    IndexedMapping members;
    std::unordered_map<std::string, std::unique_ptr<Node>> below{};
  };

  Node root_;
};

// With blanks at its end, a text mostly keeps its size when the status in it changes, and is updated at little cost.
std::string pad(std::string text) {
  constexpr std::size_t unit = 64;
  text.append(unit - 1 - text.size() % unit, ' ');
  return text;
}

}  // namespace

JsonConf::JsonConf(std::string file, Error* error_handler)
    : Error(error_handler), filename(std::move(file)), document_(std::make_unique<Value>(Value::object())) {
  mark_changed();
}

JsonConf::~JsonConf() = default;

bool JsonConf::load_json_conf() {
  try {
    Value document = parse_json(read_file(filename, max_document_bytes));
    if (!document.is_object()) throw ValueError("not a JSON object");
    replace_document(std::move(document));
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
  mark_changed();
  DottedWriter writer(*document_);
  for (const auto& [key, value] : form.items()) {
    if (writer.set(key, value)) continue;
    set_error_msg(invalid_key(key));
    return false;
  }
  return true;
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
  mark_changed();
  if (DottedWriter(*document_).set(key, std::move(value))) return true;
  set_error_msg(invalid_key(key));
  return false;
}

bool JsonConf::del_json_conf(std::string_view key) {
  mark_changed();
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
    update_file(filename, pad(to_json(*document_, true)) + "\n", 0600);
    return true;
  } catch (const std::system_error& failure) {
    set_error_msg(fmt::format("Failed to write {}", failure.what()));
    return false;
  }
}

void JsonConf::replace_document(Value document) {
  mark_changed();
  *document_ = std::move(document);
}

void JsonConf::mark_changed() noexcept {
  static std::uint64_t latest = 0;
  revision_ = ++latest;
}

Value JsonConf::take_document() {
  mark_changed();
  return std::exchange(*document_, Value::object());
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

}  // namespace weir
