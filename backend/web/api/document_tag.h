#pragma once

#include <string>
#include <string_view>

#include "backend/base/value.h"

namespace weir {

/// The entity tag of a stream's document, quotes included: the same while nothing but "id" and "status" changes, also
/// after a restart of the server.
std::string make_document_tag(const Value& document);

/// The entity tag of a text.
std::string make_text_tag(std::string_view text);

/// Whether a header If-Match or If-None-Match names the tag: "*", or a list with it. A tag of a compressed answer is
/// that of the answer. Weak tags (W/"…") count for `If-None-Match` only.
bool names_tag(std::string_view header, std::string_view tag, bool weak_counts);

}  // namespace weir
