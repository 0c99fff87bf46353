#include "backend/collaborators/srt_rejection.h"

namespace weir {

// "20:04:08.130346/SRT:RcvQ:w1!W:SRT.cn: processAsyncConnectRequest: REJECT reported from HS processing: Incorrect
// passphrase - not processing further"
std::string_view find_srt_rejection(std::string_view line) {
  constexpr std::string_view label = "REJECT reported from HS processing: ";
  if (line.substr(0, 40).find("/SRT:") == std::string_view::npos) return {};
  const std::size_t at = line.find(label);
  if (at == std::string_view::npos) return {};
  const std::string_view reason = line.substr(at + label.size());
  return reason.substr(0, reason.find_first_of("\r\n")).substr(0, reason.find(" - "));
}

}  // namespace weir
