#include "backend/web/masked_value.h"

#include <nlohmann/json.hpp>

#include "backend/collaborators/log.h"

namespace weir {

void mask_value(Value& value) {
  if (value.is_structured()) {
    for (Value& part : value) mask_value(part);
  } else if (value.is_string()) {
    const auto& text = value.get_ref<const std::string&>();
    // Most texts are no addresses, and a list of a thousand streams has many.
    if (text.find("://") != std::string::npos) value = mask_passwords(text);
  }
}

}  // namespace weir
