#include "backend/stream/clients/stream_client_info.h"

#include <fmt/core.h>

#include <algorithm>
#include <limits>
#include <list>
#include <nlohmann/json.hpp>
#include <unordered_map>

#include "backend/base/members.h"
#include "backend/base/text_form.h"
#include "backend/platform/clock.h"
#include "backend/platform/failure.h"
#include "backend/platform/loop.h"

namespace weir {

namespace {

using std::chrono::seconds;

// The wall clock can be set meanwhile.
constexpr seconds max_sweep_wait = std::chrono::minutes(1);

// The texts that are given, joined by ":".
std::string client_key(const Value& addr, const Value& port) {
  std::string key;
  for (const Value* part : {&addr, &port}) {
    if (!is_set(*part)) continue;
    if (!part->is_string()) throw TypeError("a client's address and port have to be texts");
    if (!key.empty()) key += ':';
    key += part->get_ref<const std::string&>();
  }
  return key;
}

// Nothing when the value is not an integer; larger ones than 63 bits are cut to them.
std::optional<long long> to_timeout(const Value& value) {
  if (!value.is_number_integer()) return std::nullopt;
  constexpr unsigned long long max_timeout = std::numeric_limits<long long>::max();
  if (value.is_number_unsigned()) return static_cast<long long>(std::min(value.get<unsigned long long>(), max_timeout));
  return value.get<long long>();
}

}  // namespace

struct StreamClientInfo::Client {
  std::string key;
  Value addr;
  long long start_time;  ///< in seconds since the Unix epoch, as `last_access`
  long long last_access;
  std::optional<long long> timeout;  ///< seconds of silence after which the client is forgotten
};

struct StreamClientInfo::Output {
  std::string filename;
  std::string protocol;
  int index;
  std::list<Client> clients{};  ///< in order of first arrival
  std::unordered_map<std::string, std::list<Client>::iterator> by_key{};

  void forget(std::list<Client>::iterator client) {
    by_key.erase(client->key);
    clients.erase(client);
  }
};

StreamClientInfo::StreamClientInfo(const JsonConf& conf) {
  const auto* stream_conf = dynamic_cast<const StreamConfig*>(&conf);
  if (assertions_enabled() && !stream_conf) throw AssertionError("clients are tracked for a stream's document only");
  if (stream_conf) track(*stream_conf);
}

StreamClientInfo::~StreamClientInfo() { cancel_sweep(); }

void StreamClientInfo::track(const StreamConfig& conf) {
  for (int index = 0; index < conf.nb_outputs; ++index) {
    const Value& output = conf.get_json_conf(fmt::format("output.{}", index));
    const Value& protocol = member(output, "protocol");
    const bool hls = protocol == "hls";
    if (!hls && protocol != "http") continue;
    const std::string filename = to_text(member(output, hls ? "playlist_name" : "filename"));
    // Of two outputs of one name the later one is tracked, in the place of the earlier.
    if (Output* earlier = find_output(filename)) {
      *earlier = {filename, to_text(protocol), index};
    } else {
      outputs_.push_back({filename, to_text(protocol), index});
    }
  }
}

bool StreamClientInfo::add(const Value& filename, const Value& addr, const Value& port, const Value& timeout) {
  Output* output = find_output(filename);
  if (!output) return true;
  const long long time = wall_seconds();
  const std::string key = client_key(addr, port);
  const auto known = output->by_key.find(key);
  if (known != output->by_key.end()) {
    known->second->last_access = time;
    return true;
  }
  Client client{key, addr, time, time, std::nullopt};
  client.timeout = to_timeout(timeout);
  if (client.timeout) sweep_after(seconds(*client.timeout));
  output->by_key[key] = output->clients.insert(output->clients.end(), std::move(client));
  return true;
}

bool StreamClientInfo::remove(const Value& filename, const Value& addr, const Value& port) {
  const std::string key = client_key(addr, port);
  Output* output = find_output(filename);
  if (!output) return true;
  const auto known = output->by_key.find(key);
  if (known != output->by_key.end()) output->forget(known->second);
  return true;
}

std::size_t StreamClientInfo::size() const {
  std::size_t count = 0;
  for (const Output& output : outputs_) count += output.clients.size();
  return count;
}

Value StreamClientInfo::dumps() const {
  const long long time = wall_seconds();
  Value summary = Value::object();
  for (const Output& output : outputs_) {
    Value clients = Value::array();
    for (const Client& client : output.clients) {
      Value shown = make_mapping(2);
      shown["addr"] = client.addr;
      shown["duration"] = time - client.start_time;
      clients.push_back(std::move(shown));
    }
    Value& shown = summary[std::to_string(output.index)] = make_mapping(2);
    shown["protocol"] = output.protocol;
    shown["clients"] = std::move(clients);
  }
  return summary;
}

Async<bool> StreamClientInfo::cleanup() {
  cancel_sweep();
  co_return true;
}

StreamClientInfo::Output* StreamClientInfo::find_output(const Value& filename) {
  if (!filename.is_string()) return nullptr;
  const auto found = std::ranges::find(outputs_, filename.get_ref<const std::string&>(), &Output::filename);
  return found == outputs_.end() ? nullptr : &*found;
}

// Sweeps are on the seconds of the loop's time: those of all streams at once cost one wake-up.
void StreamClientInfo::sweep_after(seconds wait) {
  const TimePoint earliest = now() + std::clamp(wait, seconds(0), max_sweep_wait) + std::chrono::nanoseconds(1);
  const TimePoint due = round_up(earliest, seconds(1));
  if (sweep_ && (*sweep_)->first <= due) return;
  cancel_sweep();
  sweep_ = Loop::current().timers().add(due, *this);
}

// The time until the next client can expire, if one is left that can.
std::optional<seconds> StreamClientInfo::expire_clients() {
  std::optional<long long> next;
  const long long time = wall_seconds();
  for (Output& output : outputs_) {
    for (auto client = output.clients.begin(); client != output.clients.end();) {
      const auto candidate = client++;
      if (!candidate->timeout) continue;
      const long long left = *candidate->timeout - std::max(time - candidate->last_access, 0LL);
      if (left < 0) {
        output.forget(candidate);
      } else {
        next = std::min(left, next.value_or(left));
      }
    }
  }
  if (!next) return std::nullopt;
  return seconds(*next);
}

void StreamClientInfo::expire() {
  sweep_.reset();
  if (const auto wait = expire_clients()) sweep_after(*wait);
}

void StreamClientInfo::cancel_sweep() {
  if (sweep_) Loop::current().timers().cancel(*sweep_);
  sweep_.reset();
}

}  // namespace weir
