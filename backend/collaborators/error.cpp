#include "backend/collaborators/error.h"

#include "backend/base/log.h"

namespace weir {

void Error::set_error_msg(std::string text) {
  if (error_handler_) error_handler_->set_error_msg(text);
  error_msg_ = std::move(text);
}

void Error::error(std::string_view text) const { log(LogLevel::error, get_class_name(), text); }
void Error::warning(std::string_view text) const { log(LogLevel::warning, get_class_name(), text); }
void Error::info(std::string_view text) const { log(LogLevel::info, get_class_name(), text); }
void Error::debug(std::string_view text) const { log(LogLevel::debug, get_class_name(), text); }

}  // namespace weir
