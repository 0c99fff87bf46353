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
#include "backend/base/time_text.h"
#include "backend/collaborators/siblings.h"
#include "backend/collaborators/srt_output.h"
#include "backend/collaborators/version.h"
#include "backend/platform/failure.h"
#include "backend/platform/loop.h"
#include "backend/platform/task.h"
#include "backend/stream/runtime/timetable.h"
#include "backend/web/api/pending_changes.h"
#include "backend/web/document_checks.h"
#include "backend/web/masked_value.h"
#include "backend/web/response.h"
#include "backend/web/schema/command_trial.h"
#include "backend/web/schema/form_check.h"
#include "backend/web/stream_tags.h"

namespace weir {

namespace {

void require(bool done, const Error& document) {
  if (!done) throw HttpError(400, document.get_error_msg());
}

FormFindings find_kept_members(const Value& form) {
  FormFindings findings;
  for (const auto& [key, value] : form.items()) {
    const std::string first = key.substr(0, key.find('.'));
    if (first == "id" || first == "status")
      findings.push_back({key, fmt::format("\"{}\" is kept by the server", first)});
  }
  return findings;
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
    numbered[std::to_string(count++)] = *input.value;
  }
  return result;
}

// Outputs over SRT are completed before the others are normalised, which drops what has no address.
void complete_srt_outputs(JsonConf& changed) {
  if (std::ranges::none_of(changed.get_json_conf("output"), is_srt_output)) return;
  Value outputs = changed.get_json_conf("output");
  for (Value& output : outputs)
    if (is_srt_output(output)) complete_srt_output(output);
  require(changed.set_json_conf("output", std::move(outputs)), changed);
}

void throw_findings(const FormReport& report) {
  if (!report.findings.empty()) throw FormError(report.findings, report.warnings);
}

// What the posted form makes of the document, its members checked and stored as their readers take them.
Value apply_posted(const Value& document, const Value& posted, const TouchedKeys& touched, FormReport& report) {
  report.findings = find_kept_members(posted);
  JsonConf changed;
  changed.replace_document(document);
  if (!changed.load_json_conf(posted)) report.findings.push_back(as_finding(changed.get_error_msg()));
  Value members = changed.take_document();
  check_stream_members(members, touched, report);
  throw_findings(report);
  return members;
}

// The members that the posted form changes, as they are going to be.
Value make_form(Value& document, Value applied) {
  JsonConf changed;
  changed.replace_document(std::move(applied));
  StreamConfigVersionControl(changed).update();
  const Value& inputs = changed.get_json_conf("input");
  if (inputs.is_object()) require(changed.set_json_conf("input", number_inputs(inputs)), changed);
  complete_srt_outputs(changed);
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

// The document itself refuses it without the member's name.
void require_profile(const Value& form) {
  const Value& profile = member(form, "profile");
  if (!profile.is_string() || !is_number(profile.get_ref<const std::string&>())) return;
  const auto& digits = profile.get_ref<const std::string&>();
  const auto id = parse_integer(digits);
  if (!id || !siblings().profile_manager->get_profile(*id))
    throw FormError({{"profile", fmt::format("there is no profile {}", digits)}});
}

// The document as the manager is going to save it.
Value apply_form(Value document, long long id, const Value& form) {
  require_profile(form);
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

/// What a form is tried on.
struct Trial {
  Value before;  ///< the document as it is; null for a new one
  TouchedKeys touched;
  std::shared_ptr<const ProfileDraft> draft;  ///< in place of the profile; may be null
};

// Runs a check of the document. What is refused already without the form, and not its subject, does not count.
template <class Check>
void check_change(const Value& document, const Trial& trial, FormReport& report, const Check& check) {
  const auto find_refusal = [&](const Value& checked) -> std::string {
    try {
      check(checked);
      return {};
    } catch (const HttpError& refusal) {
      return refusal.what();
    }
  };
  const std::string refusal = find_refusal(document);
  if (refusal.empty()) return;
  Finding finding = as_finding(refusal);
  const bool concerned = trial.before.is_null() || trial.touched.concerns(finding.key);
  if (concerned || find_refusal(trial.before) != refusal) report.findings.push_back(std::move(finding));
}

Async<> check_document(std::shared_ptr<const Value> document, std::shared_ptr<const Trial> trial, FormReport& report) {
  for (const auto check : {check_texts, check_playlist_names, check_http_outputs, check_tags, check_access}) {
    check_change(*document, *trial, report, check);
    co_await yield_to_others();
  }
  throw_findings(report);
  const std::string text = check_size(*document);
  co_await yield_to_others();
  Value saved = parse_json(text);
  co_await yield_to_others();
  Value again = load(std::move(saved), trial->draft.get());
  co_await yield_to_others();
  check_same(*document, std::move(again));
  co_await yield_to_others();
}

// Which inputs the form may have spoilt: those that it does not touch are as they were.
int count_checked_inputs(const Value& document, const Trial& trial) {
  const bool all = trial.before.is_null() || trial.touched.concerns("input");
  return all ? static_cast<int>(std::max<std::size_t>(numbered_members(member(document, "input")).size(), 1)) : 1;
}

// The transcoder's command can be made for each input.
Async<std::vector<std::string>> check_command(std::shared_ptr<const Value> document, std::shared_ptr<const Trial> trial,
                                              FormReport& report) {
  std::vector<std::string> first;
  const int inputs = count_checked_inputs(*document, *trial);
  for (int index = 0; index < inputs; ++index) {
    CommandTrial made = co_await try_command(document, index);
    if (index == 0) first = made.command;
    if (made.fault.empty()) continue;
    Finding finding = as_finding(made.fault);
    const bool concerned = trial->before.is_null() || trial->touched.concerns(finding.key);
    if (!concerned) {
      const auto before = std::make_shared<const Value>(trial->before);
      const CommandTrial earlier = co_await try_command(before, index);
      if (earlier.fault == made.fault) continue;
    }
    if (std::ranges::find(report.findings, finding) == report.findings.end()) report.findings.push_back(finding);
    // The others have the same outputs.
    if (!finding.key.starts_with("input.")) break;
  }
  throw_findings(report);
  co_return first;
}

void warn_of_draft(const Value& document, FormReport& report) {
  for (const char* section : {"input", "output"})
    if (numbered_members(member(document, section)).empty())
      report.warnings.push_back({section, "none: the stream can't be started yet"});
}

// One that can't be read, of a document that was stored long ago, is not acted on.
std::vector<std::string> list_next_times(const JsonConf& conf, std::string_view key) {
  constexpr std::size_t shown = 5;
  std::vector<std::string> times;
  try {
    const Timetable timetable = read_timetable(conf, key);
    auto next = next_time(timetable, Loop::current().clock().wall());
    for (; next && times.size() < shown; next = next_time(timetable, *next)) times.push_back(to_local_iso8601(*next));
  } catch (const Failure&) {
  }
  return times;
}

void list_next_times(const Value& document, FormDetails& details) {
  JsonConf conf;
  conf.replace_document({{"input", member(document, "input")}});
  details.restarts = list_next_times(conf, "input.restart");
  details.switches = list_next_times(conf, "input.switch");
}

Async<Value> prepare(std::shared_ptr<const Trial> trial, long long id, Value posted, FormDetails& details) {
  FormReport report;
  co_await yield_to_others();  // reading the request was a part, too
  Value document = trial->before.is_null() ? Value::object() : trial->before;
  Value applied = apply_posted(document, posted, trial->touched, report);
  co_await yield_to_others();
  Value form = make_form(document, std::move(applied));
  co_await yield_to_others();
  const auto changed = std::make_shared<const Value>(apply_form(std::move(document), id, form));
  co_await yield_to_others();
  co_await check_document(changed, trial, report);
  details.command = co_await check_command(changed, trial, report);
  warn_of_draft(*changed, report);
  details.warnings = std::move(report.warnings);
  list_next_times(*changed, details);
  co_return form;
}

bool changes_nothing(const StreamConfig& present, const Value& document) {
  Value before = present.document();
  for (const char* kept : {"id", "status"}) before.erase(kept);
  return list_changed_keys(std::move(before), document).empty();
}

// Every refusal as findings.
Async<Value> prepare_with_findings(std::shared_ptr<const Trial> trial, long long id, Value posted,
                                   FormDetails* details) {
  FormDetails unused;
  try {
    co_return co_await prepare(std::move(trial), id, std::move(posted), details ? *details : unused);
  } catch (const FormError&) {
    throw;
  } catch (const HttpError& refusal) {
    throw FormError({as_finding(refusal.what())});
  }
}

}  // namespace

Async<Value> prepare_new_stream(long long id, Value posted, FormDetails* details) {
  restore_secrets(posted, JsonConf());
  const auto trial = std::make_shared<const Trial>();
  Value form = co_await prepare_with_findings(trial, id, std::move(posted), details);
  form["status"] = "stopped";
  co_return form;
}

Async<Value> prepare_change(std::shared_ptr<const StreamConfig> conf, Value posted, FormDetails* details) {
  restore_secrets(posted, *conf);
  const auto trial = std::make_shared<const Trial>(Trial{conf->document(), TouchedKeys(posted), nullptr});
  const auto id = conf->get_json_conf("id").get<long long>();
  Value form = co_await prepare_with_findings(trial, id, std::move(posted), details);
  co_return form;
}

Async<Value> prepare_import(long long id, Value document, std::shared_ptr<const StreamConfig> present,
                            std::shared_ptr<const ProfileDraft> profile) {
  Value none = Value::object();
  const StreamConfig empty;
  restore_secrets(document, present ? *present : empty);
  const bool is_same = present && changes_nothing(*present, document);
  if (is_same && !profile) co_return present->document();
  co_await yield_to_others();
  const auto trial = std::make_shared<const Trial>(is_same ? Trial{present->document(), TouchedKeys(none), profile}
                                                           : Trial{nullptr, TouchedKeys(), profile});
  FormReport report;
  Value form = make_form(none, apply_posted(none, document, trial->touched, report));
  co_await yield_to_others();
  // An imported profile may not be in the registry yet.
  const Value profile_id = member(form, "profile");
  if (profile) form.erase("profile");
  Value prepared = apply_form(Value::object(), id, form);
  co_await yield_to_others();
  if (profile) {
    prepared["profile"] = profile_id;
    prepared = load(std::move(prepared), profile.get());
    co_await yield_to_others();
  }
  const auto shared = std::make_shared<const Value>(std::move(prepared));
  co_await check_document(shared, trial, report);
  co_await check_command(shared, trial, report);
  co_return *shared;
}

Async<> try_profile(std::shared_ptr<const StreamConfig> conf, std::shared_ptr<const ProfileDraft> draft) {
  const auto trial = std::make_shared<const Trial>(Trial{conf->document(), TouchedKeys(Value::object()), draft});
  const auto document = std::make_shared<const Value>(load(conf->document(), draft.get()));
  co_await yield_to_others();
  FormReport report;
  co_await check_document(document, trial, report);
  co_await check_command(document, trial, report);
}

}  // namespace weir
