#pragma once

#include <string>
#include <string_view>

#include "backend/base/value.h"

namespace weir {

// An "http" output is published by the server: the transcoder sends it through a unix socket, the server passes it on
// to its viewers. What both ends have to agree on is here.

/// What the output consists of, as the transcoder's muxer is called: "mpegts", "mp3" or "adts". By its "format", else
/// by the ending of its "filename". Empty when it is none of them: viewers could not join another one while it runs.
std::string_view get_http_format(const Value& output);

/// Why the server can't publish the output; empty when it can.
std::string find_http_output_fault(const Value& output);

/// The path of the socket for output `index`, in the stream's MMCB directory. It must not be longer than
/// `max_socket_path`.
std::string get_http_socket(const Value& stream_id, int index);

inline constexpr std::size_t max_socket_path = 107;

}  // namespace weir
