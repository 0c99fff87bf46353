#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace weir {

/// The largest stream id: beyond it readers of JSON round integers.
constexpr long long max_stream_id = (1LL << 53) - 1;

/// "12.conf", the name of stream 12's file.
std::string stream_file_name(long long id);

/// The path of a file of the stream directory.
std::string stream_file_path(std::string_view name);

/// Whether the name is a stream file's: decimal digits and ".conf". Leading zeros do not count: "012.conf" is
/// stream 12.
bool is_stream_file(std::string_view name);

/// The id in a stream file's name; nothing for other names and for ids beyond `max_stream_id`.
std::optional<long long> stream_id_of(std::string_view name);

}  // namespace weir
