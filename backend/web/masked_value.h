#pragma once

#include "backend/base/value.h"
#include "backend/collaborators/jsonconf.h"

namespace weir {

/// Masks the secrets in the value, at any depth; see `mask_secrets`. For everything that is shown to somebody who may
/// not see them.
void mask_value(Value& value);

/// Puts the document's secrets into a form that has them masked: what is sent back as it was shown stays as it is. An
/// input or an output that has moved to another number keeps its own. Throws `FormError`, which names the keys,
/// for masked secrets that none of the document's belongs to.
void restore_secrets(Value& form, const JsonConf& document);

}  // namespace weir
