#include "backend/web/response.h"

#include <nlohmann/json.hpp>

#include "backend/base/log.h"
#include "backend/base/text_form.h"

namespace weir {

namespace {

// What the API says is true now and never later.
Response make(int status, std::string content_type, std::string body) {
  Response response;
  response.status = status;
  response.content_type = std::move(content_type);
  response.body = std::move(body);
  response.headers.emplace_back("Cache-Control", "no-store");
  return response;
}

}  // namespace

Response json_response(const Value& value, int status) { return json_text_response(to_json(value), status); }

Response json_text_response(std::string text, int status) {
  return make(status, "application/json", std::move(text) + "\n");
}

Response text_response(std::string text, int status) {
  return make(status, "text/plain; charset=utf-8", std::move(text));
}

Response empty_response(int status) { return make(status, {}, {}); }

Response error_response(int status, std::string_view message) {
  // A reason may name an input with its password.
  return json_response(Value{{"error", mask_passwords(message)}}, status);
}

Response ok_response() { return json_response(Value{{"ok", true}}); }

}  // namespace weir
