#include "backend/web/schema/stream_checks.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <boost/algorithm/string/case_conv.hpp>
#include <locale>
#include <nlohmann/json.hpp>

#include "backend/base/members.h"
#include "backend/base/numbers.h"
#include "backend/base/text.h"
#include "backend/base/text_form.h"
#include "backend/collaborators/config.h"
#include "backend/collaborators/file_roots.h"
#include "backend/collaborators/input_rules.h"
#include "backend/web/schema/member_check.h"

namespace weir {

namespace {

double read_speed(const Value& value, double fallback) {
  if (value.is_number()) return value.get<double>();
  return value.is_string() ? parse_float(value.get_ref<const std::string&>()).value_or(fallback) : fallback;
}

// The local path that an address means; empty when it means none.
std::string get_local_path(const std::string& url, const std::string& scheme) {
  const std::string text(trim(url));
  if (scheme.empty()) return text.starts_with("file:") ? text.substr(5) : text;
  return scheme == "file" ? text.substr(scheme.size() + 3) : "";
}

std::string find_address_fault(const std::string& url, const std::string& format) {
  if (holds(device_input_formats, format)) return {};
  const std::string scheme = get_url_scheme(trim(url));
  if (!scheme.empty() && !holds(input_protocols, scheme))
    return fmt::format("\"{}\" is not an allowed input protocol; use one of {}", scheme,
                       fmt::join(input_protocols, ", "));
  const std::string path = get_local_path(url, scheme);
  return path.empty() ? "" : find_media_file_fault(path);
}

void check_input(const NumberedMember& input, const Value& first_format, bool is_first, const TouchedKeys& touched,
                 FormFindings& findings) {
  const std::string key = "input." + input.key;
  if (!touched.concerns(key) || !input.value->is_object()) return;
  const Value& url = member(*input.value, "url");
  if (is_blank(url)) {
    findings.push_back({key + ".url", is_first ? "the first input needs a URL, as the others inherit its settings"
                                               : "missing; an input without a URL would be dropped"});
    return;
  }
  if (!touched.sets(key + ".url") && !touched.sets(key + ".format")) return;
  const Value& own = member(*input.value, "format");
  const Value& format = is_blank(own) ? first_format : own;
  if (!url.is_string() || format.is_structured()) return;
  std::string fault = find_address_fault(
      url.get<std::string>(),
      format.is_string() ? boost::to_lower_copy(std::string(trim(format.get<std::string>())), std::locale::classic())
                         : "");
  if (!fault.empty()) findings.push_back({key + ".url", std::move(fault)});
}

void check_inputs(const Value& document, const TouchedKeys& touched, FormFindings& findings) {
  Value first_format;
  bool is_first = true;
  for (const NumberedMember& input : numbered_members(member(document, "input"))) {
    if (input.value->is_null()) continue;
    if (is_first) first_format = member(*input.value, "format");
    check_input(input, first_format, is_first, touched, findings);
    is_first = false;
  }
}

// An output's number is its place after the next load; a new one is checked under the key that it is posted with, too.
void check_place(const NumberedMember& output, int place, FormFindings& findings) {
  const bool zero = compare_numbers(output.key, "0") == 0;
  if (zero && place == 0) return;
  findings.push_back({"output." + output.key + ".protocol", fmt::format("an hls output has to be output 0, not {}",
                                                                        zero ? std::to_string(place) : output.key)});
}

void check_file(const NumberedMember& output, const TouchedKeys& touched, FormFindings& findings) {
  const std::string key = "output." + output.key;
  const Value& path = member(*output.value, "path");
  const bool concerns = touched.sets(key + ".path") || touched.sets(key + ".protocol");
  if (!concerns || is_blank(path) || !path.is_string()) return;
  std::string fault = find_media_file_fault(path.get<std::string>());
  if (!fault.empty()) findings.push_back({key + ".path", std::move(fault)});
}

void check_outputs(const Value& document, const TouchedKeys& touched, FormFindings& findings) {
  int place = 0;
  for (const NumberedMember& output : numbered_members(member(document, "output"))) {
    if (!output.value->is_object()) continue;
    const Value& protocol = member(*output.value, "protocol");
    if (protocol == "hls" && touched.concerns("output." + output.key)) check_place(output, place, findings);
    if (protocol == "file") check_file(output, touched, findings);
    ++place;
  }
}

}  // namespace

void check_speed_band(const Value& document, const TouchedKeys& touched, FormFindings& findings) {
  if (!touched.sets("min_speed") && !touched.sets("max_speed")) return;
  const auto is_bound = [](const Finding& finding) { return finding.key == "min_speed" || finding.key == "max_speed"; };
  if (std::ranges::any_of(findings, is_bound)) return;
  const double min = read_speed(member(document, "min_speed"), Config::STREAM_SPEED_MIN);
  const double max = read_speed(member(document, "max_speed"), Config::STREAM_SPEED_MAX);
  if (min < max) return;
  const char* key = touched.sets("max_speed") ? "max_speed" : "min_speed";
  findings.push_back({key, fmt::format("no speed lies between min_speed ({}) and max_speed ({})", min, max)});
}

void check_between_members(const Value& document, const TouchedKeys& touched, FormFindings& findings) {
  check_speed_band(document, touched, findings);
  check_inputs(document, touched, findings);
  check_outputs(document, touched, findings);
}

}  // namespace weir
