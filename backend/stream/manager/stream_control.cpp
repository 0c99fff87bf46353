#include <fmt/args.h>
#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "backend/base/text_form.h"
#include "backend/platform/sleep.h"
#include "backend/stream/manager/stream_manager.h"
#include "backend/stream/manager/stream_manager_check_params.h"

namespace weir {

namespace {

// Keeps the stream alive while the operation waits.
Async<bool> hold([[maybe_unused]] std::shared_ptr<Stream> stream, Async<bool> operation) {
  const bool result = co_await operation;
  co_return result;
}

template <class Operation>
Async<bool> control(StreamManager& manager, const Value& id, Operation operation) {
  const auto on_stream = [operation](StreamManager& self, const Value& stream_id) {
    const std::shared_ptr<Stream> stream = self.get_stream(stream_id);
    return hold(stream, operation(*stream));
  };
  return stream_manager_check_params(false)(on_stream)(manager, id);
}

std::string skipped_line(std::string_view batch, const Value& stream_id, const std::shared_ptr<Stream>& stream) {
  return fmt::format("{}: skipped stream {} ({})", batch, to_text(stream_id),
                     stream ? to_text(stream->get_status()) : "no such stream");
}

std::string restart_line(const std::string& log_format, const Value& stream_id, const Value& label) {
  fmt::dynamic_format_arg_store<fmt::format_context> arguments;
  arguments.push_back(fmt::arg("id", to_text(stream_id)));
  arguments.push_back(fmt::arg("label", to_text(label)));
  return fmt::vformat(log_format, arguments);
}

}  // namespace

Async<bool> StreamManager::start_stream(const Value& id, std::string by) {
  return control(*this, id, [&](Stream& stream) { return stream.start(0, true, std::move(by)); });
}

Async<bool> StreamManager::stop_stream(const Value& id, std::string by) {
  return control(*this, id, [&](Stream& stream) { return stream.stop(std::move(by)); });
}

Async<bool> StreamManager::restart_stream(const Value& id, std::string by) {
  return control(*this, id, [&](Stream& stream) { return stream.restart(0, {.by = std::move(by)}); });
}

std::optional<std::string> StreamManager::get_stream_log(const Value& id) {
  const auto read = [](StreamManager& manager, const Value& stream_id) -> std::optional<std::string> {
    return manager.get_stream(stream_id)->stdbuf.read();
  };
  return stream_manager_check_params(std::nullopt)(read)(*this, id);
}

bool StreamManager::delete_stream_log(const Value& id) {
  const auto truncate = [](StreamManager& manager, const Value& stream_id) {
    return manager.get_stream(stream_id)->stdbuf.truncate();
  };
  return stream_manager_check_params(false)(truncate)(*this, id);
}

std::shared_ptr<StreamConfig> StreamManager::get_stream_config(const Value& id) {
  const auto document = [](StreamManager& manager, const Value& stream_id) {
    return manager.get_stream(stream_id)->conf;
  };
  return stream_manager_check_params(nullptr)(document)(*this, id);
}

bool StreamManager::add_stream_client_info(const Value& id, const Value& filename, const Value& addr, const Value& port,
                                           const Value& timeout) {
  const auto add = [](StreamManager& manager, const Value& stream_id, const auto&... arguments) {
    return manager.get_stream(stream_id)->clientinfo->add(arguments...);
  };
  return stream_manager_check_params(false)(add)(*this, id, filename, addr, port, timeout);
}

bool StreamManager::remove_stream_client_info(const Value& id, const Value& filename, const Value& addr,
                                              const Value& port) {
  const auto remove = [](StreamManager& manager, const Value& stream_id, const auto&... arguments) {
    return manager.get_stream(stream_id)->clientinfo->remove(arguments...);
  };
  return stream_manager_check_params(false)(remove)(*this, id, filename, addr, port);
}

Async<bool> StreamManager::batch_start_streams(std::vector<Value> stream_ids, double interval, std::string by) {
  co_await stop_thread();
  double delay = 0;
  for (const Value& stream_id : stream_ids) {
    const std::shared_ptr<Stream> stream = get_stream(stream_id);
    if (!stream || stream->get_status() != "stopped") {
      debug(skipped_line("Batch start", stream_id, stream));
      continue;
    }
    const bool started = co_await stream->start(delay, true, by);
    if (!started) stream->debug(fmt::format("Batch start: {}", stream->get_error_msg()));
    delay += interval;
    co_await yield_to_others();  // a thousand starts take a second
  }
  co_return true;
}

Async<bool> StreamManager::batch_stop_streams(std::vector<Value> stream_ids, std::string by) {
  co_await stop_thread();
  for (const Value& stream_id : stream_ids) {
    const std::shared_ptr<Stream> stream = get_stream(stream_id);
    if (stream)
      co_await stream->stop(by);
    else
      debug(skipped_line("Batch stop", stream_id, stream));
  }
  co_return true;
}

Async<bool> StreamManager::batch_restart_streams(std::vector<Value> stream_ids, double interval,
                                                 std::optional<std::string> log_format, std::string by) {
  co_await stop_thread();
  thread = spawn("batch restart", restart_each(std::move(stream_ids), interval, std::move(log_format), std::move(by)));
  co_return true;
}

Async<> StreamManager::restart_each(std::vector<Value> stream_ids, double interval,
                                    std::optional<std::string> log_format, std::string by) {
  for (const Value& stream_id : stream_ids) {
    const std::shared_ptr<Stream> stream = get_stream(stream_id);
    if (!stream || !is_active(stream->get_status())) {
      debug(skipped_line("Batch restart", stream_id, stream));
      continue;
    }
    if (log_format) info(restart_line(*log_format, stream_id, stream->conf->get_json_conf("label")));
    Reason reason{.by = by};
    co_await stream->restart(0, std::move(reason));
    co_await sleep_seconds(interval);
  }
}

}  // namespace weir
