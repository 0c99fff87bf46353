#include "backend/services/transcoder/report/output_states.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <nlohmann/json.hpp>

#include "backend/base/log.h"
#include "backend/base/mask_passwords.h"
#include "backend/base/text_form.h"
#include "backend/base/time_text.h"
#include "backend/collaborators/journal.h"
#include "backend/collaborators/srt_rejection.h"
#include "backend/platform/loop.h"

namespace weir {

namespace {

constexpr std::chrono::minutes notice_interval{1};
constexpr std::size_t max_error_bytes = 200;

struct ContextLine {
  std::string_view name;  ///< of the part of FFmpeg that prints
  std::uint64_t address = 0;
  std::string_view text;
};

std::string_view skip_colours(std::string_view line) {
  while (line.starts_with("\x1b[")) {
    const std::size_t end = line.find_first_not_of("0123456789;", 2);
    if (end == std::string_view::npos || line[end] != 'm') break;
    line.remove_prefix(end + 1);
  }
  return line;
}

// "[fifo @ 0x5556cf89cfc0] text", each part in its colour.
std::optional<ContextLine> parse_context_line(std::string_view line) {
  constexpr std::string_view reset = "\x1b[0m";
  if (line.starts_with(reset)) line.remove_prefix(reset.size());
  if (!line.starts_with("\x1b[48;5;0m\x1b[38;5;")) return std::nullopt;
  line = skip_colours(line);
  const std::size_t at = line.substr(0, 32).find(" @ 0x");
  if (!line.starts_with('[') || at == std::string_view::npos) return std::nullopt;
  ContextLine parsed;
  parsed.name = line.substr(1, at - 1);
  line.remove_prefix(at + 5);
  const auto address = std::from_chars(line.data(), line.data() + line.size(), parsed.address, 16);
  line.remove_prefix(static_cast<std::size_t>(address.ptr - line.data()));
  if (address.ec != std::errc() || !line.starts_with("] ")) return std::nullopt;
  parsed.text = skip_colours(line.substr(2));
  parsed.text = parsed.text.substr(0, parsed.text.find_first_of("\r\n\x1b"));
  return parsed;
}

std::string_view after(std::string_view text, std::string_view prefix) {
  return text.starts_with(prefix) ? text.substr(prefix.size()) : std::string_view();
}

bool is_local(const OutputReceiver& receiver) { return receiver.address.starts_with('/'); }

bool is_datagrams(const OutputReceiver& receiver) { return receiver.protocol == "udp" || receiver.protocol == "rtp"; }

// Whether the receiver can fail like this.
bool can_fail_by(const OutputReceiver& receiver, std::string_view error) {
  constexpr std::array<std::string_view, 4> disk{"No space left on device", "Disk quota exceeded",
                                                 "Read-only file system", "File too large"};
  const bool is_disk = std::ranges::find(disk, error) != disk.end();
  const bool is_network = error == "Broken pipe" || error.starts_with("Connection ");
  return is_local(receiver) ? !is_network : !is_disk;
}

bool has_address(const OutputReceiver& receiver, std::string_view host_and_port) {
  const std::string& url = receiver.address;
  const std::size_t at = url.find(host_and_port);
  if (host_and_port.empty() || at == std::string::npos || at == 0) return false;
  const std::size_t end = at + host_and_port.size();
  return (url[at - 1] == '/' || url[at - 1] == '@') && (end == url.size() || url[end] == '/' || url[end] == '?');
}

std::string shorten(std::string_view error) {
  std::string text(error.substr(0, max_error_bytes));
  std::erase_if(text, [](unsigned char byte) { return byte < 0x20 || byte == 0x7F; });
  return text;
}

const char* to_word(OutputStates::State state) {
  constexpr std::array words{"starting", "sending", "unknown", "retrying", "failed"};
  return words[static_cast<std::size_t>(state)];
}

}  // namespace

void OutputStates::begin(const JsonConf& conf, std::vector<OutputReceiver> receivers) {
  *this = {};
  if (const Value& id = conf.get_json_conf("id"); id.is_number_integer()) stream_id_ = id.get<long long>();
  label_ = to_text(conf.get_json_conf("label"));
  for (OutputReceiver& receiver : receivers) {
    if (outputs_.empty() || outputs_.back().index != receiver.output)
      outputs_.push_back({.index = receiver.output, .since = Loop::current().clock().wall()});
    receivers_.push_back({std::move(receiver)});
  }
  render();
}

void OutputStates::watch(std::string_view line, bool is_progress) {
  if (receivers_.empty()) return;
  if (is_progress) {
    if (unsettled_ || !running_) settle(now());
    return;
  }
  if (const std::string_view rejection = find_srt_rejection(line); !rejection.empty())
    srt_rejection_ = shorten(rejection);
  const auto parsed = parse_context_line(line);
  if (!parsed) return;
  if (parsed->name == "tcp") {
    read_connection_line(parsed->text);
  } else if (parsed->name == "fifo") {
    read_queue_line(parsed->address, parsed->text);
    refused_address_.clear();
  } else if (parsed->name == "tee") {
    read_tee_line(parsed->text);
  }
}

// "Connection to tcp://127.0.0.1:23554?timeout=0 failed: Connection refused", "Failed to resolve hostname h: reason"
void OutputStates::read_connection_line(std::string_view text) {
  if (const auto url = after(text, "Connection to tcp://"); !url.empty())
    refused_address_ = url.substr(0, std::min(url.find_first_of("?/ "), max_error_bytes));
  if (text.starts_with("Failed to resolve hostname ")) unresolved_ = shorten(text);
}

// FFmpeg gives the reason for some failures in a line before, which names no output.
std::string OutputStates::explain(const Receiver& receiver, std::string_view error) const {
  if (error != "Input/output error") return shorten(error);
  if (receiver.protocol == "srt" && !srt_rejection_.empty()) return srt_rejection_;
  const std::string host = unresolved_.substr(0, unresolved_.rfind(": "));
  const std::string_view name = after(host, "Failed to resolve hostname ");
  return !name.empty() && receiver.address.find(name) != std::string::npos ? unresolved_ : shorten(error);
}

// The lines of libavformat/fifo.c.
void OutputStates::read_queue_line(std::uint64_t queue, std::string_view text) {
  if (const auto opening = after(text, "Error opening "); !opening.empty()) {
    for (Receiver& receiver : receivers_) {
      const std::string_view rest = after(opening, receiver.address);
      if (!rest.starts_with(": ") || (receiver.queue != 0 && receiver.queue != queue)) continue;
      if (!find(queue)) name(receiver, queue);
      return fail(queue, rest.substr(2));
    }
  } else if (const auto error = after(text, "Recovery failed: "); !error.empty()) {
    fail(queue, error);
  } else if (text == "Recovery successful") {
    recover(queue);
  } else if (text == "FIFO queue full") {
    fail(queue, "It takes no data; what is sent is dropped");
  } else if (text == "FIFO queue flushed") {
    recover(queue);
  }
}

// "Slave muxer #1 failed: No such file or directory, continuing with 1/2 slaves."
void OutputStates::read_tee_line(std::string_view text) {
  const std::string_view rest = after(text, "Slave muxer #");
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
  if (rest.empty() || error != std::errc() || number >= receivers_.size()) return;
  const std::string_view reason = after(rest.substr(static_cast<std::size_t>(end - rest.data())), " failed");
  Receiver& receiver = receivers_[number];
  receiver.state = State::failed;
  const std::string_view named = after(reason, ": ");
  receiver.error = shorten(named.substr(0, named.rfind(", continuing with ")));
  receiver.reopened.reset();
  update();
}

OutputStates::Receiver* OutputStates::find(std::uint64_t queue) {
  const auto found = std::ranges::find(receivers_, queue, &Receiver::queue);
  return found == receivers_.end() ? nullptr : &*found;
}

void OutputStates::fail(std::uint64_t queue, std::string_view error) {
  if (queue == 0) return;
  if (find(queue) || bind(queue, error)) {
    Receiver& receiver = *find(queue);
    if (receiver.state == State::failed) return;
    receiver.state = State::retrying;
    receiver.error = explain(receiver, error);
    receiver.reopened.reset();
  } else {
    suspect_ = queue;
    for (const std::size_t candidate : find_candidates(queue, error)) {
      receivers_[candidate].state = State::unknown;
      receivers_[candidate].error = shorten(error) + " (this output or another one)";
      receivers_[candidate].reopened.reset();
    }
  }
  update();
}

void OutputStates::recover(std::uint64_t queue) {
  const bool is_suspect = queue == suspect_ && queue != 0;
  for (Receiver& receiver : receivers_) {
    const bool is_suspected = is_suspect && receiver.queue == 0 && receiver.state == State::unknown;
    if ((receiver.queue == queue && receiver.state == State::retrying) || is_suspected) {
      receiver.reopened = now();
      unsettled_ = true;
    }
  }
}

// True when the queue can be that of one receiver only.
bool OutputStates::bind(std::uint64_t queue, std::string_view error) {
  const std::vector<std::size_t> candidates = find_candidates(queue, error);
  if (candidates.size() == 1) name(receivers_[candidates[0]], queue);
  return candidates.size() == 1;
}

// The others are no longer suspected.
void OutputStates::name(Receiver& named, std::uint64_t queue) {
  named.queue = queue;
  if (queue != suspect_) return;
  suspect_ = 0;
  for (Receiver& receiver : receivers_)
    if (receiver.queue == 0 && receiver.state == State::unknown) {
      receiver.state = State::starting;
      receiver.error.clear();
    }
  settle(now());
}

std::vector<std::size_t> OutputStates::find_candidates(std::uint64_t queue, std::string_view error) const {
  std::vector<std::size_t> candidates;
  for (std::size_t i = 0; i < receivers_.size(); ++i)
    if (receivers_[i].queue == 0 && receivers_[i].state != State::failed && can_fail_by(receivers_[i], error))
      candidates.push_back(i);
  const auto narrow = [&](auto fits) {
    std::vector<std::size_t> fitting;
    std::ranges::copy_if(candidates, std::back_inserter(fitting), fits);
    if (!fitting.empty()) candidates = std::move(fitting);
  };
  narrow([&](std::size_t i) { return fits_order(queue, i); });
  narrow([&](std::size_t i) { return has_address(receivers_[i], refused_address_); });
  return candidates;
}

// FFmpeg makes the queues one after the other, at rising addresses.
bool OutputStates::fits_order(std::uint64_t queue, std::size_t candidate) const {
  for (std::size_t i = 0; i < receivers_.size(); ++i) {
    if (receivers_[i].queue == 0 || i == candidate) continue;
    if ((receivers_[i].queue < queue) != (i < candidate)) return false;
  }
  return true;
}

void OutputStates::settle(TimePoint now) {
  running_ = true;
  unsettled_ = false;
  for (Receiver& receiver : receivers_) {
    const bool has_held = receiver.reopened && now - *receiver.reopened >= settling_time;
    if (receiver.state == State::starting || has_held) {
      receiver.state = is_datagrams(receiver) ? State::unknown : State::sending;
      receiver.error.clear();
      receiver.reopened.reset();
    }
    if (receiver.reopened) unsettled_ = true;
  }
  update();
}

void OutputStates::update() {
  bool changed = false;
  for (Output& output : outputs_) {
    const Receiver* worst = nullptr;
    for (const Receiver& receiver : receivers_)
      if (receiver.output == output.index && (!worst || receiver.state > worst->state)) worst = &receiver;
    if (output.state != worst->state) output.since = Loop::current().clock().wall();
    changed = changed || output.state != worst->state || output.error != worst->error;
    output.state = worst->state;
    output.error = worst->error;
    tell(output, now());
  }
  if (changed) render();
}

void OutputStates::tell(Output& output, TimePoint now) {
  const bool is_new = output.state != State::starting && output.state != output.told;
  if (!is_new || (output.state == State::unknown && output.error.empty())) return;
  if (output.told_at && now - *output.told_at < notice_interval) {
    unsettled_ = true;
    return;
  }
  output.told = output.state;
  output.told_at = now;
  const Receiver& receiver = first_receiver(output.index);
  const bool has_url = !is_local(receiver) && receiver.protocol != "http";
  std::string text = fmt::format("output #{} {} is {}", output.index, has_url ? receiver.address : receiver.protocol,
                                 to_word(output.state));
  if (!output.error.empty()) text += ": " + output.error;
  journal().record(
      {.kind = JournalKind::notice, .stream_id = stream_id_, .label = label_, .text = mask_passwords(text)});
}

const OutputStates::Receiver& OutputStates::first_receiver(int output) const {
  return *std::ranges::find(receivers_, output, &Receiver::output);
}

void OutputStates::render() {
  Value list = Value::array();
  for (const Output& output : outputs_) {
    const Receiver& receiver = first_receiver(output.index);
    Value item = {{"index", output.index}, {"protocol", receiver.protocol}};
    if (receiver.protocol != "hls" && receiver.protocol != "http") item["url"] = mask_passwords(receiver.address);
    item["state"] = to_word(output.state);
    item["since"] = to_iso8601(output.since);
    if (!output.error.empty()) item["error"] = mask_passwords(output.error);
    list.push_back(std::move(item));
  }
  json_ = to_json(list);
}

}  // namespace weir
