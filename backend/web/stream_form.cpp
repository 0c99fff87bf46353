#include "backend/web/stream_form.h"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "backend/base/bounded_json.h"
#include "backend/base/indexed_mapping.h"
#include "backend/base/members.h"
#include "backend/base/numbers.h"
#include "backend/base/text.h"
#include "backend/base/text_form.h"
#include "backend/collaborators/srt_output.h"
#include "backend/collaborators/version.h"
#include "backend/platform/failure.h"
#include "backend/platform/task.h"
#include "backend/web/document_checks.h"
#include "backend/web/masked_value.h"
#include "backend/web/response.h"
#include "backend/web/stream_tags.h"

namespace weir {

namespace {

void require(bool done, const Error& document) {
  if (!done) throw HttpError(400, document.get_error_msg());
}

void refuse_kept_members(const Value& form) {
  for (const auto& [key, value] : form.items()) {
    const std::string first = key.substr(0, key.find('.'));
    if (first == "id" || first == "status") throw HttpError(400, fmt::format("\"{}\" is kept by the server", first));
  }
}

// All inputs inherit from input 0, so it has to be one.
void check_input(const NumberedMember& input, bool first) {
  const Value& url = member(*input.value, "url");
  if (!input.value->is_object()) throw HttpError(400, fmt::format("input.{}: not a mapping", input.key));
  if (!url.is_null() && !url.is_string()) throw HttpError(400, fmt::format("input.{}.url: not a text", input.key));
  if (first && (url.is_null() || trim(url.get_ref<const std::string&>()).empty())) {
    throw HttpError(
        400, fmt::format("input.{}.url: the first input needs a URL, as the others inherit its settings", input.key));
  }
}

// The inputs from 0 on without gaps: input 0 gives the others its settings, and which one that is must not change with
// the next load. An input that is null is none.
Value number_inputs(const Value& inputs) {
  Value result = Value::object();
  IndexedMapping numbered(result);
  for (const auto& [key, value] : inputs.items())
    if (!is_number(key)) numbered[key] = value;
  int count = 0;
  for (const NumberedMember& input : numbered_members(inputs)) {
    if (input.value->is_null()) continue;
    check_input(input, count == 0);
    numbered[std::to_string(count++)] = *input.value;
  }
  return result;
}

// Outputs over SRT are completed and checked before the others are normalised, which drops what has no address.
void prepare_srt_outputs(JsonConf& changed) {
  if (std::ranges::none_of(changed.get_json_conf("output"), is_srt_output)) return;
  Value outputs = changed.get_json_conf("output");
  for (auto& [key, output] : outputs.get_ref<Value::object_t&>()) {
    if (!is_srt_output(output)) continue;
    complete_srt_output(output);
    const std::string fault = find_srt_output_fault(output);
    if (!fault.empty()) throw HttpError(400, fmt::format("output.{}.{}", key, fault));
  }
  require(changed.set_json_conf("output", std::move(outputs)), changed);
}

// The members that the posted form changes, as they are going to be.
Value make_form(Value& document, const Value& posted) {
  JsonConf changed;
  changed.replace_document(document);
  require(changed.load_json_conf(posted), changed);
  StreamConfigVersionControl(changed).update();
  const Value& inputs = changed.get_json_conf("input");
  if (inputs.is_object()) require(changed.set_json_conf("input", number_inputs(inputs)), changed);
  prepare_srt_outputs(changed);
  IndexedMapping present(document);
  Value form = Value::object();
  IndexedMapping members(form);
  Value all = changed.take_document();
  for (auto& [key, value] : all.get_ref<Value::object_t&>()) {
    const Value* before = present.find(key);
    if (!before || *before != value) members[key] = std::move(value);
  }
  return form;
}

// The document as the manager is going to save it.
Value apply_form(Value document, long long id, const Value& form) {
  return as_bad_request([&] {
    StreamConfig trial;
    trial.replace_document(std::move(document));
    require(trial.load_json_conf(form) && trial.set_json_conf("id", id), trial);
    return trial.take_document();
  });
}

// Loads the document as it is saved. With a draft, the stream's profile is that one.
Value load(Value saved, const ProfileDraft* draft) {
  return as_bad_request([&] {
    StreamConfig again;
    again.replace_document(std::move(saved));
    require(draft ? again.apply_profile(&draft->description()) : again.load_json_conf(Value::object()), again);
    StreamConfigVersionControl(again).update();
    return again.take_document();
  });
}

Async<> check_document(Value document, std::shared_ptr<const ProfileDraft> draft) {
  check_texts(document);
  check_playlist_names(document);
  check_http_outputs(document);
  check_tags(document);
  check_access(document);
  const std::string text = check_size(document);
  co_await yield_to_others();
  Value saved = parse_json(text);
  co_await yield_to_others();
  Value again = load(std::move(saved), draft.get());
  co_await yield_to_others();
  check_same(document, std::move(again));
  co_await yield_to_others();
}

Async<Value> prepare(Value document, long long id, Value posted) {
  refuse_kept_members(posted);
  co_await yield_to_others();  // reading the request was a part, too
  Value form = make_form(document, posted);
  co_await yield_to_others();
  Value changed = apply_form(std::move(document), id, form);
  co_await yield_to_others();
  co_await check_document(std::move(changed), nullptr);
  co_return form;
}

}  // namespace

Async<Value> prepare_new_stream(long long id, Value posted) {
  restore_secrets(posted, JsonConf());
  Value form = co_await prepare(Value::object(), id, std::move(posted));
  form["status"] = "stopped";
  co_return form;
}

Async<Value> prepare_change(std::shared_ptr<const StreamConfig> conf, Value posted) {
  restore_secrets(posted, *conf);
  Value form = co_await prepare(conf->document(), conf->get_json_conf("id").get<long long>(), std::move(posted));
  co_return form;
}

Async<> try_profile(std::shared_ptr<const StreamConfig> conf, std::shared_ptr<const ProfileDraft> draft) {
  Value document = load(conf->document(), draft.get());
  co_await yield_to_others();
  co_await check_document(std::move(document), std::move(draft));
}

}  // namespace weir
