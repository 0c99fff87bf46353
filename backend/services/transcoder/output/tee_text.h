#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace weir {

using OptionList = std::vector<std::pair<std::string, std::string>>;

/// One receiver of FFmpeg's tee muxer: options, and an address that may hold any character.
std::string make_tee_slave(const OptionList& options, std::string_view address);

/// The receivers as the one text that the muxer takes apart.
std::string join_tee_slaves(const std::vector<std::string>& slaves);

/// "key=value:key=value" for an option that is itself a list of options.
std::string join_option_list(const OptionList& options);

}  // namespace weir
