#include "backend/collaborators/srt_output.h"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "backend/base/members.h"
#include "backend/base/network_address.h"
#include "backend/base/numbers.h"
#include "backend/base/text_form.h"

namespace weir {

namespace {

constexpr std::size_t min_passphrase = 10;
constexpr std::size_t max_passphrase = 79;
constexpr std::size_t max_streamid = 512;
constexpr long long max_latency = 60'000;

bool is_listener(const Value& output) { return member(output, "mode") == "listener"; }

/// Whether it can stand in a line of the log as one word.
bool is_word(const std::string& text) {
  return std::ranges::none_of(text, [](unsigned char c) { return c <= ' ' || c == 0x7f; });
}

std::string find_address_fault(const Value& output) {
  const Value& hostname = member(output, "hostname");
  const Value& port = member(output, "port");
  if (!is_set(hostname)) return "hostname: missing; a caller needs the host that it calls";
  if (!read_host(hostname)) return fmt::format("hostname: {} is not a host name or address", to_text(hostname));
  if (!is_set(port)) return "port: missing";
  return read_port(port) ? "" : fmt::format("port: {} is not a port (1 to 65535)", to_text(port));
}

std::string find_mode_fault(const Value& mode) {
  if (!is_set(mode) || mode == "caller" || mode == "listener") return {};
  return fmt::format("mode: {} is not caller or listener", to_text(mode));
}

std::string find_latency_fault(const Value& latency) {
  if (latency.is_null() || (latency.is_string() && latency.get_ref<const std::string&>().empty())) return {};
  const bool whole = latency.is_number_integer() || latency.is_string();
  const auto milliseconds = whole ? parse_integer(to_text(latency)) : std::nullopt;
  if (milliseconds && *milliseconds >= 0 && *milliseconds <= max_latency) return {};
  return fmt::format("latency: {} is not a whole number of milliseconds from 0 to {}", to_text(latency), max_latency);
}

std::string find_streamid_fault(const Value& streamid) {
  if (!is_set(streamid)) return {};
  if (!streamid.is_string() || !is_word(streamid.get_ref<const std::string&>()))
    return "streamid: not a text without blanks";
  const bool fits = streamid.get_ref<const std::string&>().size() <= max_streamid;
  return fits ? "" : fmt::format("streamid: longer than {} bytes", max_streamid);
}

std::string find_passphrase_fault(const Value& passphrase) {
  if (!is_set(passphrase)) return {};
  const std::string text = passphrase.is_string() ? passphrase.get<std::string>() : "";
  const bool fits = text.size() >= min_passphrase && text.size() <= max_passphrase;
  if (fits && is_word(text)) return {};
  return fmt::format("passphrase: not a text of {} to {} bytes without blanks", min_passphrase, max_passphrase);
}

}  // namespace

bool is_srt_output(const Value& output) { return output.is_object() && member(output, "protocol") == "srt"; }

void complete_srt_output(Value& output) {
  if (is_listener(output) && !is_set(member(output, "hostname"))) output["hostname"] = "0.0.0.0";
}

std::string find_srt_output_fault(const Value& output) {
  for (const std::string& fault :
       {find_mode_fault(member(output, "mode")), find_address_fault(output),
        find_latency_fault(member(output, "latency")), find_streamid_fault(member(output, "streamid")),
        find_passphrase_fault(member(output, "passphrase"))})
    if (!fault.empty()) return fault;
  return {};
}

}  // namespace weir
