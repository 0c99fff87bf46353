#include "backend/web/publishing/link_routes.h"

#include <fmt/core.h>

#include <nlohmann/json.hpp>
#include <set>

#include "backend/base/members.h"
#include "backend/base/numbers.h"
#include "backend/base/text_form.h"
#include "backend/base/time_text.h"
#include "backend/collaborators/journal.h"
#include "backend/platform/loop.h"

namespace weir {

namespace {

std::chrono::seconds read_lifetime(const Value& form) {
  const auto seconds = parse_integer(to_text(member(form, "expires")));
  if (seconds && *seconds >= 1 && *seconds <= PublishingLinks::max_lifetime.count())
    return std::chrono::seconds(*seconds);
  throw HttpError(400, fmt::format("expires: {} is not a number of seconds from 1 to {}",
                                   to_text(member(form, "expires")), PublishingLinks::max_lifetime.count()));
}

std::string read_name(const Value& form) {
  const Value& name = member(form, "name");
  if (name.is_null()) return {};
  if (!name.is_string() || name.get_ref<const std::string&>().size() > PublishingLinks::max_name_bytes)
    throw HttpError(400, fmt::format("name: not a text of at most {} bytes", PublishingLinks::max_name_bytes));
  return name.get<std::string>();
}

PublishingLink read_link(const Value& form) {
  for (const auto& [name, value] : form.items())
    if (name != "expires" && name != "name")
      throw HttpError(400, fmt::format("{}: not a member of a link (expires, name)", name));
  const auto now = std::chrono::floor<std::chrono::seconds>(Loop::current().clock().wall().time_since_epoch());
  return {.name = read_name(form), .expires = now + read_lifetime(form)};
}

std::string to_time(std::chrono::seconds since_1970) { return to_iso8601(WallTime(since_1970)); }

Value to_record(const PublishingLink& link) {
  return {{"id", link.id},
          {"name", link.name},
          {"by", link.by},
          {"created", to_time(link.created)},
          {"expires", to_time(link.expires)}};
}

void tell(const Stream& stream, std::string text, std::string by) {
  journal().record({.kind = JournalKind::changed,
                    .stream_id = stream.id,
                    .label = to_text(stream.conf->get_json_conf("label")),
                    .by = std::move(by),
                    .text = std::move(text)});
}

}  // namespace

void LinkRoutes::add_to(Router& router) {
  using Parameters = const PathParameters&;
  const std::string all = "/api/streams/{id}/links";
  router.add("GET", all, [this](const Request&, Parameters p) { return immediate(list(p[0])); });
  router.add("POST", all, [this](const Request& r, Parameters p) { return add(p[0], read_form(r), r.host, r.by()); });
  router.add("DELETE", all + "/{link}", [this](const Request& r, Parameters p) { return revoke(p[0], p[1], r.by()); });
}

std::shared_ptr<Stream> LinkRoutes::find(const std::string& id) {
  std::shared_ptr<Stream> stream = manager_.get_stream(id);
  if (!stream) throw HttpError(404, manager_.get_error_msg());
  return stream;
}

// Without the tokens: each is shown once, to who made it.
Response LinkRoutes::list(const std::string& id) {
  Value records = Value::array();
  for (const PublishingLink& link : links_.of_stream(find(id)->id)) records.push_back(to_record(link));
  return json_response(records);
}

Async<Response> LinkRoutes::add(std::string id, Value form, std::string host, std::string by) {
  const auto guard = co_await changes_.acquire();
  const std::shared_ptr<Stream> stream = find(id);
  PublishingLink wanted = read_link(form);
  wanted.stream = stream->id;
  wanted.by = by;
  std::string too_many;
  PublishingLink link;
  try {
    link = co_await links_.add(std::move(wanted));
  } catch (const std::length_error& failure) {
    too_many = failure.what();
  }
  if (!too_many.empty()) throw HttpError(409, too_many);
  tell(*stream, fmt::format("link {} added", link.id), std::move(by));
  const std::string token = links_.make_token(link);
  Value record = to_record(link);
  record["token"] = token;
  record["urls"] = list_urls(*stream, token, host);
  co_return json_response(record, 201);
}

Async<Response> LinkRoutes::revoke(std::string id, std::string link, std::string by) {
  const auto guard = co_await changes_.acquire();
  const std::shared_ptr<Stream> stream = find(id);
  const bool revoked = co_await links_.remove(stream->id, parse_integer(link).value_or(0));
  if (!revoked) throw HttpError(404, fmt::format("Stream {} has no link {}", stream->id, link));
  tell(*stream, fmt::format("link {} revoked", link), std::move(by));
  co_return empty_response();
}

// The token follows the stream's id.
Value LinkRoutes::list_urls(const Stream& stream, const std::string& token, const std::string& host) {
  Value urls = Value::array();
  const std::string id = fmt::format("/{}/", stream.id);
  for (std::string url : stream.conf->get_output_urls(host, std::set<std::string>{"hls", "http"})) {
    url.insert(url.find(id) + id.size(), token + "/");
    urls.push_back(std::move(url));
  }
  return urls;
}

}  // namespace weir
