#include "backend/web/console/console_routes.h"

#include <fmt/core.h>

#include <algorithm>

#include "backend/web/api/compression.h"
#include "backend/web/console/console_files.h"

namespace weir {

namespace {

constexpr std::string_view index_path = "/index.html";
// Scripts, styles and connections of this server only; the player hands its stream on as a blob.
constexpr const char* page_policy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; media-src 'self' blob:; "
    "connect-src 'self'; worker-src 'self' blob:; form-action 'self'; base-uri 'none'; frame-ancestors 'none'";

const ConsoleFile* find_file(std::string_view path) {
  const auto found = std::ranges::find(console_files(), path, &ConsoleFile::path);
  return found == console_files().end() ? nullptr : &*found;
}

Response show(const ConsoleFile& file, const Request& request) {
  const bool takes_gzip = accepts_gzip(request.accept_encoding);
  Response response;
  response.content_type = file.content_type;
  response.body = takes_gzip ? std::string(file.gzipped) : decompress(file.gzipped);
  if (takes_gzip) response.headers.emplace_back("Content-Encoding", "gzip");
  // The names of assets change with their content.
  response.headers.emplace_back("Cache-Control",
                                file.path == index_path ? "no-cache" : "public, max-age=31536000, immutable");
  response.headers.emplace_back("ETag", fmt::format("W/\"{}\"", file.hash));
  response.headers.emplace_back("Content-Security-Policy", page_policy);
  return response;
}

Response lead_to_api() {
  Response response = empty_response(302);
  response.headers.emplace_back("Location", "/api/openapi.yaml");
  return response;
}

}  // namespace

void add_console_routes(Router& router) {
  using Parameters = const PathParameters&;
  // The login is a page, too.
  const RouteRules rules{.role = Role::nobody, .is_page = true};
  const ConsoleFile* index = find_file(index_path);
  if (!index) {
    router.add("GET", "/", [](const Request&, Parameters) { return immediate(lead_to_api()); }, rules);
    return;
  }
  for (const char* page : {"/", "/new", "/new/many", "/streams/{id:number}", "/streams/{id:number}/edit", "/profiles",
                           "/profiles/new", "/profiles/{id:number}", "/system", "/users"})
    router.add(
        "GET", page, [index](const Request& request, Parameters) { return immediate(show(*index, request)); }, rules);
  router.add(
      "GET", "/assets/{file}",
      [](const Request& request, Parameters parameters) {
        const ConsoleFile* file = find_file("/assets/" + parameters[0]);
        return immediate(file ? show(*file, request) : error_response(404, "File not found"));
      },
      rules);
}

}  // namespace weir
