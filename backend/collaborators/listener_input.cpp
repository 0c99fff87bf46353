#include "backend/collaborators/listener_input.h"

#include <fmt/core.h>

#include <boost/algorithm/string.hpp>
#include <nlohmann/json.hpp>

#include "backend/base/members.h"
#include "backend/base/text_form.h"

namespace weir {

namespace {

// The value of a field of the URL's query as FFmpeg reads it; "1" for one without a value.
std::string query_value(std::string_view url, std::string_view name) {
  std::size_t at = url.find('?');
  while (at != std::string_view::npos) {
    const std::size_t end = url.find('&', at + 1);
    const std::string_view field = url.substr(at + 1, end == std::string_view::npos ? end : end - at - 1);
    const std::size_t equals = field.find('=');
    if (field.substr(0, equals) == name)
      return equals == std::string_view::npos ? "1" : std::string(field.substr(equals + 1));
    at = end;
  }
  return {};
}

bool is_on(const std::string& value) { return !value.empty() && value != "0" && value != "False"; }

}  // namespace

bool is_listener_input(const JsonConf& conf, int input) {
  const Value& source = conf.get_json_conf(fmt::format("input.{}", input));
  const Value& given = member(source, "url");
  if (!given.is_string()) return false;
  const std::string url = boost::algorithm::trim_copy(given.get<std::string>());
  const std::string scheme = boost::to_lower_copy(url.substr(0, url.find("://")), std::locale::classic());
  const auto value_of = [&](const char* name) {
    const Value& option = member(member(source, "options"), name);
    return option.is_null() ? query_value(url, name) : to_text(option);
  };
  if (scheme == "srt") return value_of("mode") == "listener";
  if (scheme == "rtsp") return value_of("rtsp_flags").find("listen") != std::string::npos;
  const bool can_listen = scheme == "tcp" || scheme == "tls" || scheme == "rtmp" || scheme == "http";
  return can_listen && is_on(value_of("listen"));
}

}  // namespace weir
