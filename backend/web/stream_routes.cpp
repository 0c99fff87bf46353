#include "backend/web/stream_routes.h"

#include <fmt/core.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "backend/base/log.h"
#include "backend/base/members.h"
#include "backend/base/text.h"
#include "backend/base/text_form.h"
#include "backend/collaborators/config.h"
#include "backend/platform/files.h"
#include "backend/stream/manager/active_status.h"
#include "backend/web/masked_value.h"
#include "backend/web/stream_form.h"

namespace weir {

namespace {

// A failure of the operation is one of the values that it was given.
template <class Operation>
void blame_form(const Operation& operation) {
  try {
    operation();
  } catch (const std::exception& failure) {
    throw HttpError(400, failure.what());
  }
}

// "hls,http"
std::optional<std::set<std::string>> parse_protocols(std::string_view text) {
  if (text.empty()) return std::nullopt;
  std::set<std::string> protocols;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(','), text.size());
    protocols.emplace(trim(text.substr(0, end)));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return protocols;
}

// A stream whose record can't be made must not hide the others.
Value record_or_error(const Stream& stream, const std::string& host) {
  try {
    return StreamManager::stream_info(stream, host);
  } catch (const std::exception& failure) {
    return {{"id", stream.id},
            {"label", stream.conf->get_json_conf("label")},
            {"status", stream.get_status()},
            {"error", failure.what()}};
  }
}

}  // namespace

void StreamRoutes::add_to(Router& router) {
  using Parameters = const PathParameters&;
  // Most answers are made without a wait.
  const auto now = [](Response response) -> Async<Response> { co_return response; };
  const std::string one = "/api/streams/{id}";
  router.add("GET", "/api/streams", [this](const Request& r, Parameters) { return list(r); });
  router.add("POST", "/api/streams", [this](const Request& r, Parameters) { return add(r); });
  router.add("GET", one, [=, this](const Request& r, Parameters p) { return now(read(r, p[0])); });
  router.add("PATCH", one, [this](const Request& r, Parameters p) { return change(r, p[0]); });
  router.add("DELETE", one, [this](const Request&, Parameters p) { return remove(p[0]); });
  for (const auto& [name, operation] : {std::pair<const char*, Control>{"/start", &StreamManager::start_stream},
                                        {"/stop", &StreamManager::stop_stream},
                                        {"/restart", &StreamManager::restart_stream}})
    router.add("POST", one + name,
               [this, operation](const Request&, Parameters p) { return control(operation, p[0]); });
  router.add("GET", one + "/log", [=, this](const Request&, Parameters p) { return now(read_log(p[0])); });
  router.add("DELETE", one + "/log", [=, this](const Request&, Parameters p) { return now(delete_log(p[0])); });
  router.add("GET", one + "/config", [=, this](const Request&, Parameters p) { return now(read_config(p[0])); });
  router.add("GET", one + "/urls", [=, this](const Request& r, Parameters p) { return now(read_urls(r, p[0])); });
  router.add("POST", one + "/clients", [=, this](const Request& r, Parameters p) { return now(add_client(r, p[0])); });
  router.add("DELETE", one + "/clients",
             [=, this](const Request& r, Parameters p) { return now(remove_client(r, p[0])); });
}

std::shared_ptr<Stream> StreamRoutes::find(const Value& id) {
  std::shared_ptr<Stream> stream = manager_.get_stream(id);
  if (!stream) throw HttpError(404, manager_.get_error_msg());
  return stream;
}

// Text by text, as a thousand records at once are many megabytes of small pieces, and part by part, as a long list must
// not hold up the streams. It tells of the streams that there were when it was asked for.
Async<Response> StreamRoutes::list(const Request& request) const {
  if (request.query("broken") == "1") co_return json_response(broken_files_.list());
  constexpr std::size_t usual_record = 800;
  constexpr std::size_t part = 64;
  const std::string host = request.host;
  const std::vector<std::shared_ptr<Stream>> streams = manager_.all_streams();
  std::string records = "[";
  records.reserve(streams.size() * usual_record);
  for (std::size_t i = 0; i < streams.size(); ++i) {
    if (i % part == part - 1) co_await yield_to_others();
    Value record = record_or_error(*streams[i], host);
    mask_value(record);
    if (i > 0) records += ',';
    records += to_json(record);
  }
  records += ']';
  co_return json_text_response(std::move(records));
}

Response StreamRoutes::read(const Request& request, const Value& id) {
  Value record = manager_.get_stream_info(request.host, id);
  if (!record.is_object()) throw HttpError(404, manager_.get_error_msg());
  mask_value(record);
  return json_response(record);
}

Async<Response> StreamRoutes::add(const Request& request) {
  const Value form = new_stream_form(read_form(request));
  try_new_stream(form);
  const long long id = manager_.stream_next_id;
  const std::string file = fmt::format("{}.conf", id);
  const std::string path = join_path(Config::STREAM_DIRECTORY, file);
  broken_files_.make_room(file);
  add_or_clean_up(form, path);
  co_await sync_file(path);
  co_return json_response({{"id", id}}, 201);
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

Async<Response> StreamRoutes::change(const Request& request, Value id) {
  const std::shared_ptr<Stream> stream = find(id);
  const Value form = read_form(request);
  refuse_kept_members(form);
  try_change(*stream->conf, form);
  if (!manager_.save_stream(id, form)) throw HttpError(500, manager_.get_error_msg());
  co_await sync_file(stream->conf->filename);
  co_return ok_response();
}

Async<Response> StreamRoutes::remove(Value id) {
  const std::shared_ptr<Stream> stream = find(id);
  if (!manager_.delete_stream(id)) {
    throw HttpError(is_active(stream->get_status()) ? 409 : 500, manager_.get_error_msg());
  }
  co_await sync_file(Config::STREAM_DIRECTORY);
  co_return empty_response();
}

Async<Response> StreamRoutes::control(Control operation, Value id) {
  find(id);
  const bool done = co_await (manager_.*operation)(id);
  if (!done) throw HttpError(400, manager_.get_error_msg());
  co_return ok_response();
}

Response StreamRoutes::read_log(const Value& id) {
  const auto text = manager_.get_stream_log(id);
  if (!text) throw HttpError(404, manager_.get_error_msg());
  return text_response(mask_passwords(*text));
}

Response StreamRoutes::delete_log(const Value& id) {
  find(id);
  manager_.delete_stream_log(id);
  return empty_response();
}

Response StreamRoutes::read_config(const Value& id) {
  const std::shared_ptr<StreamConfig> conf = manager_.get_stream_config(id);
  if (!conf) throw HttpError(404, manager_.get_error_msg());
  return json_response(conf->document());
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
  blame_form([&] {
    manager_.add_stream_client_info(id, member(form, "filename"), member(form, "addr"), member(form, "port"),
                                    member(form, "timeout"));
  });
  return ok_response();
}

Response StreamRoutes::remove_client(const Request& request, const Value& id) {
  find(id);
  const Value form = read_form(request);
  blame_form([&] {
    manager_.remove_stream_client_info(id, member(form, "filename"), member(form, "addr"), member(form, "port"));
  });
  return ok_response();
}

}  // namespace weir
