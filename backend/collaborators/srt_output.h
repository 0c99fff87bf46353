#pragma once

#include <string>

#include "backend/base/value.h"

namespace weir {

/// Whether the output sends MPEG-TS over SRT.
bool is_srt_output(const Value& output);

/// Gives a listener without "hostname" the address of all interfaces. A document drops network outputs without one.
void complete_srt_output(Value& output);

/// Why the members of an "srt" output can't be used: "latency: …"; empty when they can. Never shows the passphrase.
std::string find_srt_output_fault(const Value& output);

}  // namespace weir
