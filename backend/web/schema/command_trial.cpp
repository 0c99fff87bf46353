#include "backend/web/schema/command_trial.h"

#include <nlohmann/json.hpp>

#include "backend/base/mask_passwords.h"
#include "backend/base/members.h"
#include "backend/collaborators/jsonconf.h"
#include "backend/collaborators/siblings.h"
#include "backend/platform/failure.h"
#include "backend/platform/task.h"

namespace weir {

namespace {

void complete(JsonConf& conf) {
  const auto add = [&](const char* section, Value standin) {
    if (!numbered_members(conf.get_json_conf(section)).empty()) return;
    if (!conf.set_json_conf(section, Value{{"0", std::move(standin)}})) throw ValueError(conf.get_error_msg());
  };
  add("input", {{"url", "udp://127.0.0.1:9"}});
  add("output", {{"protocol", "udp"}, {"hostname", "127.0.0.1"}, {"port", 9}});
}

}  // namespace

Async<CommandTrial> try_command(std::shared_ptr<const Value> document, int input) {
  JsonConf conf;
  conf.replace_document(*document);
  complete(conf);
  Error reason;
  const std::unique_ptr<FFmpeg> builder = siblings().ffmpeg(conf, input, &reason);
  CommandTrial trial;
  const bool made = co_await builder->generate_command(false);
  if (made)
    trial.command = builder->command;
  else
    trial.fault = reason.get_error_msg();
  co_await yield_to_others();
  co_return trial;
}

std::vector<std::string> mask_command(std::vector<std::string> command) {
  bool hidden = false;
  for (std::string& argument : command) {
    const bool hides_next = argument.starts_with('-') && is_secret_name(argument);
    argument = hidden ? masked_secret : mask_passwords(argument);
    hidden = hides_next;
  }
  return command;
}

}  // namespace weir
