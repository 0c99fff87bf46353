#include "backend/collaborators/input_rules.h"

#include <boost/algorithm/string/case_conv.hpp>
#include <locale>

namespace weir {

std::string get_url_scheme(std::string_view url) {
  const std::size_t end = url.find("://");
  if (end == std::string_view::npos || end == 0) return {};
  const std::string scheme = boost::to_lower_copy(std::string(url.substr(0, end)), std::locale::classic());
  const bool plain = scheme.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789+-.") == std::string::npos;
  return plain ? scheme : "";
}

}  // namespace weir
