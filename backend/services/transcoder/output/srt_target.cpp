#include "backend/services/transcoder/output/srt_target.h"

#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "backend/base/network_address.h"
#include "backend/collaborators/srt_output.h"
#include "backend/platform/failure.h"

namespace weir {

OutputTarget read_srt_target(const Settings& output, const Value& mapping) {
  const std::string fault = find_srt_output_fault(mapping);
  if (!fault.empty()) throw ValueError(fmt::format("{}.{}", output.name(), fault));
  OutputTarget target;
  target.format = "mpegts";
  target.queued = true;
  target.address = fmt::format("srt://{}:{}?mode={}&pkt_size=1316", *read_host(output.raw("hostname")),
                               *read_port(output.raw("port")), output.text("mode", "caller"));
  if (const auto latency = output.whole("latency", 0, 60'000))
    target.address += fmt::format("&latency={}", *latency * 1000);
  // Not in the address, which has no way to quote what separates its options.
  for (const char* option : {"streamid", "passphrase"})
    if (output.has(option)) target.options.emplace_back(option, output.text(option));
  return target;
}

}  // namespace weir
