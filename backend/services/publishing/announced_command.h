#pragma once

#include <functional>
#include <memory>

#include "backend/collaborators/siblings.h"

namespace weir {

/// Makes builders that call `before_launch` with the stream's document whenever they have made the command of a run:
/// what the transcoder is going to connect to can be made ready then.
decltype(Siblings::ffmpeg) announce_launches(decltype(Siblings::ffmpeg) make_builder,
                                             std::function<void(const JsonConf&)> before_launch);

}  // namespace weir
