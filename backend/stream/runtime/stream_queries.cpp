#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "backend/base/document_secrets.h"
#include "backend/base/members.h"
#include "backend/base/text_form.h"
#include "backend/platform/failure.h"
#include "backend/stream/runtime/stream.h"

namespace weir {

Value Stream::get_process_info() const {
  Value result = make_mapping(6);
  if (procinfo) {
    try {
      result["cpu_percent"] = procinfo->cpu_percent();
      result["mem_rss"] = procinfo->memory_info().rss >> 20;
    } catch (const NoSuchProcess&) {
      // The process went between two figures; those that were taken stand.
    }
  }
  NvidiaProcessManager& graphics = *siblings().nvidia_process_manager;
  if (proc && !proc->poll() && !graphics.query_gpu(proc->pid()).is_null()) {
    const pid_t pid = proc->pid();
    result["gpu_dec"] = graphics.query_dec(pid);
    result["gpu_sm"] = graphics.query_sm(pid);
    result["gpu_enc"] = graphics.query_enc(pid);
    result["gpu_mem"] = graphics.query_fb(pid);
  }
  return result;
}

Value Stream::get_url_info(std::string_view host) const {
  Value result = make_mapping(3);
  result["inputs"] = conf->get_input_urls();
  result["outputs"] = conf->get_output_urls(host);
  result["input_index"] = ffmpeg->input_index;
  return result;
}

Value Stream::get_codec_info() const {
  Value result = make_mapping(2);
  result["inputs"] = streaminfo->dump_inputs();
  result["outputs"] = streaminfo->dump_outputs();
  return result;
}

void Stream::note_input(InputAnswer answer) {
  const int index = answer.index;
  if (!answer.reason.empty()) answer.reason = mask_secrets_of(conf->document(), answer.reason);
  known_inputs[index] = {to_text(conf->get_json_conf(fmt::format("input.{}.url", index))), std::move(answer)};
}

Value Stream::get_client_info() const { return clientinfo->dumps(); }

}  // namespace weir
