#include "backend/web/api/openapi_routes.h"

#include "backend/web/api/document_tag.h"
#include "backend/web/api/openapi_document.h"

namespace weir {

namespace {

constexpr const char* address = "/api/openapi.yaml";

Response show_document() {
  Response response = text_response(std::string(openapi_document()));
  response.content_type = "application/yaml";
  response.headers.emplace_back("ETag", make_text_tag(openapi_document()));
  return response;
}

}  // namespace

void add_openapi_routes(Router& router) {
  using Parameters = const PathParameters&;
  router.add("GET", address, [](const Request&, Parameters) { return immediate(show_document()); });
}

}  // namespace weir
