#pragma once

#include <string>
#include <vector>

#include "backend/collaborators/jsonconf.h"

namespace weir {

/// Whether the document's member "tags", a list of texts, holds all of these.
bool has_tags(const JsonConf& conf, const std::vector<std::string>& wanted);

/// Refuses a document whose member "tags" is neither null nor a list of at most 100 texts of 1 to 100 bytes:
/// `HttpError` with 400.
void check_tags(const Value& document);

}  // namespace weir
