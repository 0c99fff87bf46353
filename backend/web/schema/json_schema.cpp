#include "backend/web/schema/json_schema.h"

#include <nlohmann/json.hpp>

#include "backend/base/text_form.h"
#include "backend/collaborators/input_rules.h"
#include "backend/web/schema/rule_tree.h"

namespace weir {

namespace {

using Kind = MemberKind;

constexpr const char* number_pattern = R"(^\s*([-+]?([0-9]+\.?[0-9]*|\.[0-9]+)([eE][-+]?[0-9]+)?)?\s*$)";
constexpr const char* whole_pattern = R"(^\s*([-+]?[0-9]+(\.0*)?)?\s*$)";
constexpr const char* numbers_only = "^[0-9]+$";

Value any_of(std::initializer_list<const char*> types) { return {{"type", types}}; }

Value with_pattern(Value schema, const char* pattern) {
  schema["pattern"] = pattern;
  return schema;
}

// A whole number may be written as one, or as its text.
Value make_number(const MemberRule& rule, bool whole) {
  Value schema = any_of({whole ? "integer" : "number", "string", "null"});
  if (rule.min) schema["minimum"] = *rule.min;
  if (rule.max) schema["maximum"] = *rule.max;
  return with_pattern(std::move(schema), whole ? whole_pattern : number_pattern);
}

Value make_flag() {
  return {{"enum", {true, false, 1, 0, "", nullptr, "1", "0", "true", "false", "yes", "no", "on", "off"}}};
}

Value make_text(const MemberRule& rule, bool number) {
  Value schema = number ? any_of({"string", "integer", "null"}) : any_of({"string", "null"});
  if (!rule.choices.empty()) {
    schema = Value{{"enum", split_words(rule.choices)}};
    if (!rule.required) schema["enum"].insert(schema["enum"].end(), {"", nullptr});
  }
  if (rule.max) schema["maxLength"] = *rule.max;
  if (rule.secret) schema["format"] = "password";
  return schema;
}

Value make_map() {
  const Value one = any_of({"string", "integer"});
  return {{"anyOf",
           {any_of({"string", "integer", "null"}), Value{{"type", "array"}, {"items", one}, {"maxItems", 16}},
            Value{{"type", "object"}, {"additionalProperties", one}}}}};
}

Value make_box() {
  return {{"anyOf", {any_of({"string", "null"}), Value{{"type", "object"}, {"required", {"x", "y", "w", "h"}}}}}};
}

Value make_kind(const MemberRule& rule) {
  switch (rule.kind) {
    case Kind::text:
    case Kind::url:
    case Kind::host:
      return make_text(rule, false);
    case Kind::name:
      return make_text(rule, true);
    case Kind::digits:
      return with_pattern(any_of({"string", "integer", "null"}), "^[0-9]*$");
    case Kind::word:
      return any_of({"string", "number", "null"});
    case Kind::whole:
    case Kind::port:
      return make_number(rule, true);
    case Kind::number:
      return make_number(rule, false);
    case Kind::flag:
      return make_flag();
    case Kind::loop:
      return {{"anyOf", {make_number(rule, true), make_flag()}}};
    case Kind::timetable:
      return with_pattern(any_of({"string", "integer", "null"}), R"(^[-0-9,*\s]*$)");
    case Kind::map:
      return make_map();
    case Kind::box:
      return make_box();
    case Kind::tags:
      return {{"type", {"array", "null"}},
              {"items", {{"type", "string"}, {"minLength", 1}, {"maxLength", 100}}},
              {"maxItems", 100}};
    case Kind::option:
      return any_of({"string", "number", "boolean", "null"});
    case Kind::mapping:
    case Kind::numbered:
      return any_of({"object", "null"});
    case Kind::ladder:
      return any_of({"object", "array", "null"});
  }
  return Value::object();
}

// What a form shows.
void describe(const MemberRule& rule, Value& schema) {
  schema["title"] = rule.title;
  schema["description"] = rule.description;
  if (!rule.unit.empty()) schema["x-unit"] = rule.unit;
  if (!rule.fallback.empty()) schema["x-default"] = rule.fallback;
  const Value fallback = Value::parse(rule.fallback, nullptr, false);
  if (fallback.is_number()) schema["default"] = fallback;
  if (!rule.example.empty()) schema["examples"] = Value::array({Value::parse(rule.example)});
  if (rule.at_once) schema["x-at-once"] = true;
}

Value make_schema(const RuleNode& node, const MemberRule& rule, std::string_view protocol);

// Every member that an output of the protocol has; of what is no output, every member.
void add_members(const RuleNode& node, std::string_view protocol, Value& schema) {
  Value required = Value::array();
  for (const auto& [name, below] : node.members) {
    const MemberRule* rule = below->rule(protocol);
    if (!rule) continue;
    schema["properties"][name] = make_schema(*below, *rule, protocol);
    // An SRT listener has a default; a later input takes what it has not from the first.
    if (rule->required && !(protocol == "srt" && name == "hostname")) required.push_back(name);
  }
  if (!required.empty()) schema["required"] = required;
}

// One of the protocols, each with its members.
Value make_output(const RuleNode& node) {
  Value schemas = Value::array();
  for (const std::string& protocol : split_words(output_protocols)) {
    Value schema{{"title", protocol}, {"type", "object"}};
    add_members(node, protocol, schema);
    schema["properties"]["protocol"]["const"] = protocol;
    schema["properties"]["protocol"].erase("enum");
    schemas.push_back(std::move(schema));
  }
  return {{"oneOf", schemas}};
}

Value make_schema(const RuleNode& node, const MemberRule& rule, std::string_view protocol) {
  Value schema = make_kind(rule);
  describe(rule, schema);
  if (rule.key == "output.*") {
    schema = make_output(node);
    describe(rule, schema);
    return schema;
  }
  add_members(node, protocol, schema);
  if (rule.key == "input.*.options") schema["additionalProperties"] = false;
  if (!node.numbered) return schema;
  const Value below = make_schema(*node.numbered, *node.numbered->rule(), protocol);
  if (rule.kind == Kind::ladder) schema["items"] = below;
  schema["patternProperties"][numbers_only] = below;
  return schema;
}

std::string make_document_schema(const RuleNode& tree, const char* title) {
  Value schema{{"$schema", "https://json-schema.org/draft/2020-12/schema"}, {"title", title}, {"type", "object"}};
  add_members(tree, {}, schema);
  return to_json(schema, true);
}

}  // namespace

const std::string& stream_schema() {
  static const std::string text = make_document_schema(stream_rule_tree(), "Stream");
  return text;
}

const std::string& profile_schema() {
  static const std::string text = make_document_schema(profile_rule_tree(), "Profile");
  return text;
}

}  // namespace weir
