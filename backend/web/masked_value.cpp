#include "backend/web/masked_value.h"

#include <nlohmann/json.hpp>

#include "backend/base/log.h"

namespace weir {

void mask_value(Value& value) {
  if (value.is_structured()) {
    for (Value& part : value) mask_value(part);
  } else if (value.is_string()) {
    const auto& text = value.get_ref<const std::string&>();
    if (may_hold_passwords(text)) value = mask_passwords(text);
  }
}

}  // namespace weir
