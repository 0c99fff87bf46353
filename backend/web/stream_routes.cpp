#include "backend/web/stream_routes.h"

#include <fmt/core.h>

#include <boost/algorithm/string.hpp>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "backend/base/log.h"
#include "backend/base/members.h"
#include "backend/base/text_form.h"
#include "backend/collaborators/config.h"
#include "backend/platform/files.h"
#include "backend/platform/helper_thread.h"
#include "backend/stream/manager/stream_file.h"
#include "backend/web/api/document_tag.h"
#include "backend/web/form_preview.h"
#include "backend/web/log/stream_log.h"
#include "backend/web/masked_value.h"
#include "backend/web/stream_form.h"
#include "backend/web/stream_tags.h"
#include "backend/web/sync.h"

namespace weir {

namespace {

/// Has what somebody who changed an older document needs to try again.
class ChangedMeanwhile : public HttpError {
 public:
  explicit ChangedMeanwhile(const Value& document)
      : HttpError(412, "The stream was changed meanwhile"), document_(document) {}
  Response response() const override {
    Response response = json_response({{"error", what()}, {"document", document_}}, status());
    response.headers.emplace_back("ETag", make_document_tag(document_));
    return response;
  }

 private:
  Value document_;
};

void check_match(const Stream& stream, const std::string& if_match) {
  const Value& document = stream.conf->document();
  if (!if_match.empty() && !names_tag(if_match, make_document_tag(document), false)) throw ChangedMeanwhile(document);
}

void set_document(StreamConfig& conf, Value document) {
  conf.replace_document(std::move(document));
  // They count the inputs and outputs again.
  conf.sort_input();
  conf.sort_output();
}

// The form of a new stream with the document of another one, changed by a form.
Value make_copy(const StreamConfig& conf, const Value& form) {
  JsonConf copy;
  copy.replace_document(conf.document());
  for (const char* kept : {"id", "status"}) copy.del_json_conf(kept);
  const std::string label = to_text(conf.get_json_conf("label", ""));
  const Value copied = fmt::format("{} (copy)", label.empty() ? to_text(conf.get_json_conf("id")) : label);
  if (!copy.set_json_conf("label", copied) || !copy.load_json_conf(form)) throw HttpError(400, copy.get_error_msg());
  return copy.take_document();
}

// "hls,http"
std::optional<std::set<std::string>> parse_protocols(std::string_view text) {
  if (text.empty()) return std::nullopt;
  std::vector<std::string> protocols;
  boost::split(protocols, text, boost::is_any_of(","));
  for (std::string& protocol : protocols) boost::trim(protocol);
  return std::set<std::string>(protocols.begin(), protocols.end());
}

void tell(JournalKind kind, const Stream& stream, std::string by, std::string text = {}) {
  journal().record({.kind = kind,
                    .stream_id = stream.id,
                    .label = to_text(stream.conf->get_json_conf("label")),
                    .by = std::move(by),
                    .text = std::move(text)});
}

std::string list_keys(const Value& form) {
  constexpr std::size_t max_bytes = 300;
  std::string keys;
  for (const auto& [key, value] : form.items()) {
    if (keys.size() + key.size() > max_bytes) return keys + ", ...";
    keys += keys.empty() ? key : ", " + key;
  }
  return keys;
}

void add_warnings(Value& answer, const FormDetails& details) {
  if (!details.warnings.empty()) answer["warnings"] = to_json_value(details.warnings);
}

// What a deleted stream leaves: its id is not given again.
Async<> remove_directories(long long id) {
  const std::string hls = join_path(Config::HLS_DIRECTORY, std::to_string(id));
  const std::string mmcb = join_path(Config::MMCB_DIRECTORY, std::to_string(id));
  try {
    co_await on_helper_thread([hls, mmcb] {
      std::filesystem::remove_all(hls);
      std::filesystem::remove_all(mmcb);
    });
  } catch (const std::system_error& failure) {
    log(LogLevel::error, "Web", fmt::format("Failed to remove the directories of stream {}: {}", id, failure.what()));
  }
}

}  // namespace

StreamRoutes::StreamRoutes(ServerStreamManager& manager, Semaphore& changes) : manager_(manager), changes_(changes) {
  records_.add_member(pending_.make_member());
}

void StreamRoutes::add_to(Router& router) {
  using Parameters = const PathParameters&;
  // What waits gets values: the request is read before.
  const std::string one = "/api/streams/{id}";
  router.add("GET", "/api/streams", [this](const Request& r, Parameters) {
    return r.query("broken") == "1" ? list_broken_files() : list(r.host, r.query_all("tag"));
  });
  router.add("POST", "/api/streams", [this](const Request& r, Parameters) {
    return asks_for_preview(r) ? preview_new(read_form(r)) : add(read_form(r), r.by());
  });
  router.add("GET", one, [this](const Request& r, Parameters p) { return immediate(read(p[0], r.host)); });
  router.add("PATCH", one, [this](const Request& r, Parameters p) {
    find(p[0]);  // before the form is looked at
    return asks_for_preview(r) ? preview_change(p[0], read_form(r)) : change(p[0], read_form(r), r.if_match, r.by());
  });
  router.add("DELETE", one, [this](const Request& r, Parameters p) { return remove(p[0], r.if_match, r.by()); });
  router.add("POST", one + "/copy", [this](const Request& r, Parameters p) {
    find(p[0]);
    return copy(p[0], r.body.empty() ? Value::object() : read_form(r), r.by());
  });
  for (const auto& [name, operation] : {std::pair<const char*, Control>{"/start", &StreamManager::start_stream},
                                        {"/stop", &StreamManager::stop_stream},
                                        {"/restart", &StreamManager::restart_stream}})
    router.add("POST", one + name,
               [this, operation](const Request& r, Parameters p) { return control(operation, p[0], r.by()); });
  router.add("GET", one + "/log", [this](const Request& r, Parameters p) { return immediate(read_log(r, p[0])); });
  router.add("DELETE", one + "/log", [this](const Request&, Parameters p) { return immediate(delete_log(p[0])); });
  router.add("GET", one + "/config",
             [this](const Request& r, Parameters p) { return immediate(read_config(p[0], r.identity.role)); });
  router.add("GET", one + "/urls", [this](const Request& r, Parameters p) { return immediate(read_urls(r, p[0])); });
  router.add("POST", one + "/clients",
             [this](const Request& r, Parameters p) { return immediate(add_client(r, p[0])); });
  router.add("DELETE", one + "/clients",
             [this](const Request& r, Parameters p) { return immediate(remove_client(r, p[0])); });
}

std::shared_ptr<Stream> StreamRoutes::find(const Value& id) {
  std::shared_ptr<Stream> stream = manager_.get_stream(id);
  if (!stream) throw HttpError(404, manager_.get_error_msg());
  return stream;
}

// Each record is made a text at once: a thousand records are many megabytes of small pieces. The others have their turn
// after each part. The streams are those of the beginning.
Async<Response> StreamRoutes::list(std::string host, std::vector<std::string> tags) {
  constexpr std::size_t usual_record = 800;
  constexpr std::size_t part = 64;
  std::vector<std::shared_ptr<Stream>> streams = manager_.all_streams();
  if (!tags.empty()) std::erase_if(streams, [&](const auto& stream) { return !has_tags(*stream->conf, tags); });
  std::string records = "[";
  records.reserve(streams.size() * usual_record);
  for (std::size_t i = 0; i < streams.size(); ++i) {
    if (i % part == part - 1) co_await yield_to_others();
    if (i > 0) records += ',';
    records_.append(records, *streams[i], host);
  }
  records += ']';
  co_return json_text_response(std::move(records));
}

Async<Response> StreamRoutes::list_broken_files() {
  Value files = co_await manager_.broken_files.list();
  mask_value(files);
  co_return json_response(files);
}

Response StreamRoutes::read(const Value& id, const std::string& host) {
  std::string record;
  records_.append(record, *find(id), host);
  return json_text_response(std::move(record));
}

Async<Response> StreamRoutes::add(Value posted, std::string by) {
  const auto guard = co_await changes_.acquire();
  FormDetails details;
  const Value form = co_await prepare_new_stream(manager_.stream_next_id, std::move(posted), &details);
  const long long id = manager_.stream_next_id;
  const std::string path = stream_file_path(stream_file_name(id));
  make_room_for(stream_file_name(id));
  add_or_clean_up(form, path);
  std::string failed_sync;
  try {
    co_await sync_file(path);
  } catch (const std::system_error& failure) {
    failed_sync = failure.what();
  }
  const bool taken_back = !failed_sync.empty() && co_await take_back(id);
  if (taken_back) throw HttpError(500, "The stream can't be saved: " + failed_sync);
  if (const auto added = manager_.streams.find(id); added != manager_.streams.end())
    tell(JournalKind::added, *added->second, std::move(by));
  Value answer{{"id", id}};
  add_warnings(answer, details);
  co_return json_response(answer, 201);
}

// A file that could not be loaded may have the number of the next stream.
void StreamRoutes::make_room_for(const std::string& file) {
  if (!std::filesystem::exists(std::filesystem::symlink_status(stream_file_path(file)))) return;
  const std::string aside = manager_.broken_files.set_aside(file);
  log(LogLevel::warning, "Web", fmt::format("{} is set aside as {}: a new stream needs its name", file, aside));
}

// What an addition that fails leaves on disk would be a stream after the next start.
void StreamRoutes::add_or_clean_up(const Value& form, const std::string& path) {
  std::error_code ignored;
  try {
    if (manager_.add_stream(form)) return;
  } catch (const std::exception&) {
    std::filesystem::remove(path, ignored);
    throw;
  }
  throw HttpError(500, manager_.get_error_msg());
}

// False when somebody works with the new stream already, or deleted it.
Async<bool> StreamRoutes::take_back(long long id) {
  if (!manager_.delete_stream(id)) {
    log(LogLevel::error, "Web", fmt::format("Failed to sync the new stream {}, which stays", id));
    co_return false;
  }
  co_await remove_directories(id);
  co_return true;
}

// A copy is never active, whatever the stream is.
Async<Response> StreamRoutes::copy(const Value& id, const Value& posted, std::string by) {
  Value form = make_copy(*find(id)->conf, posted);
  return add(std::move(form), std::move(by));
}

Async<Response> StreamRoutes::change(Value id, Value posted, std::string if_match, std::string by) {
  const Value answer = co_await change_stream(id, std::move(posted), std::move(if_match), std::move(by));
  Response response = json_response(answer);
  response.headers.emplace_back("ETag", make_document_tag(find(id)->conf->document()));
  co_return response;
}

Async<Value> StreamRoutes::change_stream(Value id, Value posted, std::string if_match, std::string by) {
  const auto guard = co_await changes_.acquire();
  const std::shared_ptr<Stream> stream = find(id);
  check_match(*stream, if_match);
  FormDetails details;
  const Value form = co_await prepare_change(stream->conf, std::move(posted), &details);
  find(id);  // the stream may have been deleted meanwhile
  save_or_restore(*stream, form);
  tell(JournalKind::changed, *stream, std::move(by), form.empty() ? "profile" : list_keys(form));
  try {
    co_await sync_file(stream->conf->filename);
  } catch (const std::system_error&) {
    if (!stream->conf->retired()) throw;
  }
  find(id);  // the stream may have been deleted meanwhile
  Value answer{{"ok", true}, {"pending", Value::parse(pending_.list(*stream))}};
  add_warnings(answer, details);
  co_return answer;
}

Async<Response> StreamRoutes::preview_new(Value posted) {
  const auto guard = co_await changes_.acquire();
  try {
    FormDetails details;
    co_await prepare_new_stream(manager_.stream_next_id, posted, &details);
    co_return preview_response(posted, details, "when the stream is started");
  } catch (const FormError& refusal) {
    co_return preview_response(refusal);
  }
}

Async<Response> StreamRoutes::preview_change(Value id, Value posted) {
  const auto guard = co_await changes_.acquire();
  const std::shared_ptr<Stream> stream = find(id);
  try {
    FormDetails details;
    co_await prepare_change(stream->conf, posted, &details);
    const bool active = is_active(stream->get_status());
    co_return preview_response(posted, details, active ? "with the next restart" : "when the stream is started");
  } catch (const FormError& refusal) {
    co_return preview_response(refusal);
  }
}

// What could not be saved must not take effect.
void StreamRoutes::save_or_restore(const Stream& stream, const Value& form) {
  Value before = stream.conf->document();
  pending_.before_change(stream, before);
  if (manager_.save_stream(stream.id, form)) return;
  const std::string reason = manager_.get_error_msg();
  set_document(*stream.conf, std::move(before));
  throw HttpError(500, reason);
}

void StreamRoutes::replace_document(const Stream& stream, Value document) {
  pending_.before_change(stream, stream.conf->document());
  document["status"] = stream.get_status();
  set_document(*stream.conf, std::move(document));
  if (!stream.conf->save_json_conf()) throw HttpError(500, stream.conf->get_error_msg());
}

long long StreamRoutes::remove_stream(const Value& id, const std::string& if_match, std::string by) {
  const std::shared_ptr<Stream> stream = find(id);
  check_match(*stream, if_match);
  if (!manager_.delete_stream(id)) {
    throw HttpError(is_active(stream->get_status()) ? 409 : 500, manager_.get_error_msg());
  }
  tell(JournalKind::deleted, *stream, std::move(by));
  records_.forget(stream->id);
  return stream->id;
}

Async<> StreamRoutes::clean_up(std::vector<long long> ids) {
  co_await sync_or_log(Config::STREAM_DIRECTORY);
  for (const long long id : ids) co_await remove_directories(id);
}

Async<Response> StreamRoutes::remove(Value id, std::string if_match, std::string by) {
  const long long removed = remove_stream(id, if_match, std::move(by));
  co_await clean_up({removed});
  co_return empty_response();
}

Async<Response> StreamRoutes::control(Control operation, Value id, std::string by) {
  find(id);
  const bool done = co_await (manager_.*operation)(id, std::move(by));
  if (!done) {
    const std::string reason = manager_.get_error_msg();
    find(id);  // the stream may have been deleted meanwhile
    throw HttpError(400, reason);
  }
  co_return ok_response();
}

Response StreamRoutes::read_log(const Request& request, const Value& id) {
  const std::shared_ptr<Stream> stream = find(id);
  const LogView view = parse_log_view(request);
  if (view.follow) return follow_log(stream, view, request.method == "GET");
  std::string text = LogReader(view).read(stream->stdbuf);
  return text_response(view.tail ? last_lines(std::move(text), *view.tail) : std::move(text));
}

Response StreamRoutes::follow_log(std::shared_ptr<Stream> stream, LogView view, bool with_body) {
  Response response = text_response("");
  response.headers.emplace_back("X-Accel-Buffering", "no");
  response.is_live = true;
  if (with_body) response.live = std::make_unique<LogFollower>(std::move(stream), view);
  return response;
}

Response StreamRoutes::delete_log(const Value& id) {
  find(id);
  manager_.delete_stream_log(id);
  return empty_response();
}

Response StreamRoutes::read_config(const Value& id, Role role) {
  const std::shared_ptr<StreamConfig> conf = manager_.get_stream_config(id);
  if (!conf) throw HttpError(404, manager_.get_error_msg());
  Value shown = conf->document();
  if (role < Role::operator_) mask_value(shown);
  Response response = json_response(shown);
  // Of what is shown: a hash of the secrets would help to guess them.
  response.headers.emplace_back("ETag", make_document_tag(shown));
  return response;
}

Response StreamRoutes::read_urls(const Request& request, const Value& id) {
  const auto urls = manager_.get_stream_output_urls(id, request.host, parse_protocols(request.query("protocols")));
  if (!urls) throw HttpError(404, manager_.get_error_msg());
  Value list = *urls;
  mask_value(list);
  return json_response(list);
}

Response StreamRoutes::add_client(const Request& request, const Value& id) {
  find(id);
  const Value form = read_form(request);
  as_bad_request([&] {
    manager_.add_stream_client_info(id, member(form, "filename"), member(form, "addr"), member(form, "port"),
                                    member(form, "timeout"));
  });
  return ok_response();
}

Response StreamRoutes::remove_client(const Request& request, const Value& id) {
  find(id);
  const Value form = read_form(request);
  as_bad_request([&] {
    manager_.remove_stream_client_info(id, member(form, "filename"), member(form, "addr"), member(form, "port"));
  });
  return ok_response();
}

}  // namespace weir
