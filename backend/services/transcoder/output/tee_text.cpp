#include "backend/services/transcoder/output/tee_text.h"

#include "backend/base/text.h"

namespace weir {

namespace {

/// White space is escaped, too: FFmpeg trims it.
std::string escape_value(std::string_view text, std::string_view separators) {
  return escape(text, "\\' \t" + std::string(separators));
}

}  // namespace

std::string make_tee_slave(const OptionList& options, std::string_view address) {
  std::string slave = "[";
  for (const auto& [key, value] : options) {
    if (slave.size() > 1) slave += ':';
    slave += key + "=" + escape_value(value, ":]");
  }
  return slave + "]" + std::string(address);
}

std::string join_tee_slaves(const std::vector<std::string>& slaves) {
  std::string joined;
  for (const std::string& slave : slaves) {
    if (!joined.empty()) joined += '|';
    joined += escape_value(slave, "|");
  }
  return joined;
}

std::string join_option_list(const OptionList& options) {
  std::string joined;
  for (const auto& [key, value] : options) {
    if (!joined.empty()) joined += ':';
    joined += key + "=" + escape_value(value, ":");
  }
  return joined;
}

}  // namespace weir
