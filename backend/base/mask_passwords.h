#pragma once

#include <string>
#include <string_view>

namespace weir {

/// The text with "scheme://user:password@" shown as "scheme://user:***@", and the values of fields of a URL's query
/// that are credentials ("passphrase=", "token=" …) as "***"; such a value ends at "&", ";", "#" or a blank. So are
/// those of the options in brackets that FFmpeg shows ahead of an address: "[f=mpegts:passphrase=…]srt://…". For
/// whatever is logged or shown; documents and command lines keep the real URL. Linear in the text.
std::string mask_passwords(std::string_view text);

/// False when masking would certainly change nothing; a quick check.
bool may_hold_passwords(std::string_view text);

}  // namespace weir
