#include "backend/web/schema/schema_routes.h"

#include "backend/web/api/document_tag.h"
#include "backend/web/schema/json_schema.h"

namespace weir {

namespace {

Async<Response> answer(const std::string& schema) {
  Response response = json_text_response(schema);
  response.content_type = "application/schema+json";
  response.headers.emplace_back("ETag", make_text_tag(schema));
  return immediate(std::move(response));
}

}  // namespace

void add_schema_routes(Router& router) {
  using Parameters = const PathParameters&;
  router.add("GET", "/api/schema/stream", [](const Request&, Parameters) { return answer(stream_schema()); });
  router.add("GET", "/api/schema/profile", [](const Request&, Parameters) { return answer(profile_schema()); });
}

}  // namespace weir
