#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace weir {

/// What is shown in the place of a secret.
inline constexpr std::string_view masked_secret = "***";

/// The text with the secrets of its URLs shown as "***": the password of "scheme://user:password@", the stream key of
/// "rtmp://host/app/key", and the values of fields of the query that are credentials ("passphrase=", "token=" …), each
/// up to the next "&" or blank. So are those of the options in brackets that FFmpeg shows ahead of an address:
/// "[f=mpegts:passphrase=…]srt://…". For whatever is logged or shown; documents and command lines keep the real URL.
/// Linear in the text. With `found` the secrets are added to it.
std::string mask_passwords(std::string_view text, std::vector<std::string>* found = nullptr);

/// The same for a text that is one URL, blanks in it included.
std::string mask_url(std::string_view url, std::vector<std::string>* found = nullptr);

/// False when masking would certainly change nothing; a quick check.
bool may_hold_passwords(std::string_view text);

/// Whether a field of a query, or an option, with this name is a credential: "passphrase", "access_token", "playpath" …
bool is_secret_name(std::string_view name);

}  // namespace weir
