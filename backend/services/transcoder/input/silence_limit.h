#pragma once

#include "backend/services/transcoder/input/input_source.h"

namespace weir {

/// Lets the transcoder end when a network input has sent nothing for 8 s, where FFmpeg itself waits without end and the
/// document sets no timeout. One that listens for its encoder waits for it as long as it takes.
void limit_silence(InputSource& source);

}  // namespace weir
