#include "backend/web/request.h"

#include <iterator>
#include <nlohmann/json.hpp>

#include "backend/base/bounded_json.h"
#include "backend/platform/failure.h"
#include "backend/web/response.h"

namespace weir {

std::string Request::by() const {
  return identity.name.empty() ? client_address : identity.name + " (" + client_address + ")";
}

std::string_view Request::query(std::string_view name) const {
  const auto [first, end] = target.query.equal_range(name);
  return first == end ? std::string_view() : std::string_view(std::prev(end)->second);
}

std::vector<std::string> Request::query_all(std::string_view name) const {
  std::vector<std::string> values;
  for (auto [value, end] = target.query.equal_range(name); value != end; ++value) values.push_back(value->second);
  return values;
}

Value read_form(const Request& request) {
  Value form;
  try {
    form = parse_json(request.body);
  } catch (const ValueError& failure) {
    throw HttpError(400, std::string("Invalid JSON: ") + failure.what());
  }
  if (!form.is_object()) throw HttpError(400, "Invalid form: not a JSON object");
  return form;
}

}  // namespace weir
