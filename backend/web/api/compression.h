#pragma once

#include <string>
#include <string_view>

#include "backend/platform/async.h"
#include "backend/web/response.h"

namespace weir {

/// What the entity tag of a compressed answer has before its last quote.
inline constexpr std::string_view compressed_tag_suffix = "-gzip";

/// Whether a header Accept-Encoding asks for gzip.
bool accepts_gzip(std::string_view accept_encoding);

/// Whether compressing the response would save more than a packet: texts and JSON from 1 KiB on. Playlists are made for
/// many viewers at once and stay as they are, as does what has an encoding.
bool is_compressible(const Response& response);

/// The response with its body compressed by gzip. The others have their turn after each part. A body that does not
/// become smaller stays.
Async<Response> compress(Response response);

/// The text that a gzip text holds, which is the server's own.
std::string decompress(std::string_view gzipped);

}  // namespace weir
