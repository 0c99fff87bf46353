#pragma once

#include <string>
#include <string_view>

#include "backend/base/value.h"

namespace weir {

// The secrets of a document: the values of members whose name says so ("password", "playpath", "headers" …), with all
// that is below them, and those of URLs in any text; see `mask_passwords`.

/// Whether the value of a member with this name is secret. A plain "key" names things in many answers and is not.
bool is_secret_member(std::string_view name);

/// Puts the mask in the place of every secret, at any depth. What is null, a flag or empty stays. `name` is that of the
/// member whose value it is.
void mask_secrets(Value& value, std::string_view name = {});

/// Whether a secret of the value is the mask itself: it was shown masked and is no secret any more.
bool holds_masked_secret(const Value& value, std::string_view name = {});

/// The text, its URLs masked, without the longer ones of the document's secrets wherever else they stand in it: a
/// transcoder's messages name stream keys by themselves.
std::string mask_secrets_of(const Value& document, std::string_view text);

}  // namespace weir
