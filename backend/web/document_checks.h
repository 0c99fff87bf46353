#pragma once

#include <string>

#include "backend/base/value.h"

namespace weir {

// What a stream's document has to fulfil beyond being loadable, before it is saved. A refusal is an `HttpError` with
// 400 that names the key.

/// No text and no name of a member holds a NUL, where an argument of the transcoder would end, or is longer than an
/// argument can be.
void check_texts(const Value& document);

/// The master playlist has to be written under a temporary name and served.
void check_playlist_names(const Value& document);

/// Viewers have to be able to join "http" outputs, and to tell them apart.
void check_http_outputs(const Value& document);

/// "access" says who may watch: "open" to everybody, "link" to whoever has a link.
void check_access(const Value& document);

/// Some room has to be left for what the server adds. Returns the text of the document's file.
std::string check_size(const Value& document);

/// The document is the same when it was loaded again, whatever the order of its members.
void check_same(const Value& document, Value loaded_again);

}  // namespace weir
