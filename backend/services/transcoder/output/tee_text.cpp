#include "backend/services/transcoder/output/tee_text.h"

namespace weir {

namespace {

/// A backslash before each special character, quote, backslash and white space: FFmpeg's readers trim the latter.
std::string escape(std::string_view text, std::string_view specials) {
  std::string escaped;
  for (char c : text) {
    const bool special = specials.find(c) != std::string_view::npos;
    if (special || c == '\\' || c == '\'' || c == ' ' || c == '\t') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

}  // namespace

std::string make_tee_slave(const OptionList& options, std::string_view address) {
  std::string slave = "[";
  for (const auto& [key, value] : options) {
    if (slave.size() > 1) slave += ':';
    slave += key + "=" + escape(value, ":]");
  }
  return slave + "]" + std::string(address);
}

std::string join_tee_slaves(const std::vector<std::string>& slaves) {
  std::string joined;
  for (const std::string& slave : slaves) {
    if (!joined.empty()) joined += '|';
    joined += escape(slave, "|");
  }
  return joined;
}

std::string join_option_list(const OptionList& options) {
  std::string joined;
  for (const auto& [key, value] : options) {
    if (!joined.empty()) joined += ':';
    joined += key + "=" + escape(value, ":");
  }
  return joined;
}

}  // namespace weir
