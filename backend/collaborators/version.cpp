#include "backend/collaborators/version.h"

#include <array>
#include <nlohmann/json.hpp>

#include "backend/base/members.h"
#include "backend/platform/failure.h"

namespace weir {

namespace {

void set_where_absent(JsonConf& conf, const char* key) {
  if (conf.get_json_conf(key).is_null() && !conf.set_json_conf(key, "")) throw ValueError(conf.get_error_msg());
}

}  // namespace

void StreamConfigVersionControl::update() {
  for (const char* limit : {"min_speed", "max_speed", "max_sys_mem", "max_gpu_mem"}) set_where_absent(conf_, limit);
  if (is_set(conf_.get_json_conf("video.cvdelogo.filename"))) set_where_absent(conf_, logo_queue_size_key);
}

}  // namespace weir
