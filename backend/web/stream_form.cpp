#include "backend/web/stream_form.h"

#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "backend/web/response.h"

namespace weir {

namespace {

void apply(StreamConfig& scratch, const Value& form) {
  bool accepted = false;
  try {
    accepted = scratch.load_json_conf(form);
  } catch (const std::exception& failure) {
    throw HttpError(400, failure.what());
  }
  if (!accepted) throw HttpError(400, scratch.get_error_msg());
}

}  // namespace

void refuse_kept_members(const Value& form) {
  for (const auto& [key, value] : form.items()) {
    const std::string first = key.substr(0, key.find('.'));
    if (first == "id" || first == "status") throw HttpError(400, fmt::format("\"{}\" is kept by the server", first));
  }
}

Value new_stream_form(Value form) {
  refuse_kept_members(form);
  form["status"] = "stopped";
  for (const char* bound : {"min_speed", "max_speed", "max_sys_mem", "max_gpu_mem"})
    if (!form.contains(bound)) form[bound] = "";
  return form;
}

void try_new_stream(const Value& form) {
  StreamConfig scratch;
  apply(scratch, form);
}

void try_change(const StreamConfig& document, const Value& form) {
  StreamConfig scratch;
  // A member that no key can name, as its name is empty or has a dot, has no part in what the form can do.
  for (const auto& [name, value] : document.document().items()) scratch.set_json_conf(name, value);
  apply(scratch, form);
}

}  // namespace weir
