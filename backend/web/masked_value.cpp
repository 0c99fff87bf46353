#include "backend/web/masked_value.h"

#include <map>
#include <nlohmann/json.hpp>

#include "backend/base/document_secrets.h"
#include "backend/base/members.h"
#include "backend/base/numbers.h"
#include "backend/base/text_form.h"
#include "backend/web/schema/form_findings.h"

namespace weir {

namespace {

/// The numbered members of a mapping by what is shown of them.
class ShownMembers {
 public:
  explicit ShownMembers(const Value& mapping) : mapping_(mapping) {}

  /// The member that is shown like this; the one with the same name when there is none.
  const Value& find(const std::string& name, const Value& shown) {
    const Value& same = member(mapping_, name);
    if (!is_number(name) || !shown.is_object()) return same;
    if (!read_) read();
    const auto found = by_text_.find(to_json(shown));
    return found == by_text_.end() || is_shown_like(same, shown) ? same : *found->second;
  }

 private:
  static bool is_shown_like(const Value& value, const Value& shown) {
    Value masked = value;
    mask_secrets(masked);
    return masked == shown;
  }

  void read() {
    read_ = true;
    for (const NumberedMember& element : numbered_members(mapping_)) {
      Value masked = *element.value;
      mask_secrets(masked);
      by_text_.emplace(to_json(masked), element.value);
    }
  }

  const Value& mapping_;
  bool read_ = false;
  std::map<std::string, const Value*> by_text_;
};

std::string last_part(const std::string& key) { return key.substr(key.rfind('.') + 1); }

void restore(Value& value, const std::string& key, const std::string& name, const Value& stored,
             FormFindings& findings) {
  if (!holds_masked_secret(value, name)) return;
  Value shown = stored;
  mask_secrets(shown, name);
  if (value == shown) {
    value = stored;
  } else if (value.is_object() && !is_secret_member(name)) {
    ShownMembers members(stored);
    for (auto& [below, element] : value.get_ref<Value::object_t&>())
      restore(element, key + "." + below, below, members.find(below, element), findings);
  } else {
    findings.push_back(
        {key, "\"***\" stands for a secret that is not shown; send the secret, or the value as it was shown"});
  }
}

}  // namespace

void mask_value(Value& value) { mask_secrets(value); }

void restore_secrets(Value& form, const JsonConf& document) {
  if (!form.is_object()) return;
  FormFindings findings;
  for (auto& [key, value] : form.get_ref<Value::object_t&>())
    restore(value, key, last_part(key), document.get_json_conf(key), findings);
  if (!findings.empty()) throw FormError(std::move(findings));
}

}  // namespace weir
