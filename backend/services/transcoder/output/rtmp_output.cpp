#include "backend/services/transcoder/output/rtmp_output.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "backend/base/network_address.h"

namespace weir {

namespace {

/// Takes a part of the credentials; false when it holds what would end it within an address.
bool read_credential(const Value& value, std::string_view ending, std::string& credential) {
  credential.clear();
  if (value.is_null()) return true;
  if (!value.is_string()) return false;
  const std::string& text = value.get_ref<const std::string&>();
  auto refused = [ending](unsigned char c) {
    return c <= ' ' || c == 0x7f || ending.find(static_cast<char>(c)) != std::string_view::npos;
  };
  if (std::ranges::any_of(text, refused)) return false;
  credential = text;
  return true;
}

template <class T>
bool keep(std::optional<T> value, T& field) {
  if (value) field = std::move(*value);
  return value.has_value();
}

}  // namespace

bool RtmpOutput::set_server(const Value& server) { return keep(read_host(server), server_); }

bool RtmpOutput::set_port(const Value& port) { return keep(read_port(port), port_); }

bool RtmpOutput::set_app(const Value& app) { return keep(read_url_path(app, true), app_); }

bool RtmpOutput::set_playpath(const Value& playpath) { return keep(read_url_path(playpath, true), playpath_); }

bool RtmpOutput::set_username(const Value& username) { return read_credential(username, "/?#:@", username_); }

bool RtmpOutput::set_password(const Value& password) { return read_credential(password, "/?#", password_); }

std::string RtmpOutput::get_url() const {
  std::string credentials;
  if (!username_.empty()) credentials = password_.empty() ? username_ + "@" : username_ + ":" + password_ + "@";
  return fmt::format("rtmp://{}{}:{}/{}/{}", credentials, server_, port_, app_, playpath_);
}

}  // namespace weir
