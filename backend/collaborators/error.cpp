#include "backend/collaborators/error.h"

namespace weir {

void Error::set_error_msg(std::string text) {
  if (error_handler_) error_handler_->set_error_msg(text);
  error_msg_ = std::move(text);
}

void Error::error(std::string_view text) const { write_log(LogLevel::error, text); }
void Error::warning(std::string_view text) const { write_log(LogLevel::warning, text); }
void Error::info(std::string_view text) const { write_log(LogLevel::info, text); }
void Error::debug(std::string_view text) const { write_log(LogLevel::debug, text); }

void Error::write_log(LogLevel level, std::string_view text) const {
  log(LogLine{.level = level, .name = get_class_name(), .text = std::string(text), .fields = get_log_fields()});
}

}  // namespace weir
