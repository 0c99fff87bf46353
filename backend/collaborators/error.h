#pragma once

#include <string>
#include <string_view>

#include "backend/base/log.h"

namespace weir {

/// Base of the objects that keep the reason of their last expected failure and write log lines.
class Error {
 public:
  /// `error_handler` also gets every message that this object stores, and has to outlive it. May be null.
  explicit Error(Error* error_handler = nullptr) noexcept : error_handler_(error_handler) {}
  virtual ~Error() = default;
  Error(const Error&) = delete;
  Error& operator=(const Error&) = delete;

  /// Stores the reason of a failure here and, through the chain of handlers, there. Not logged.
  void set_error_msg(std::string text);
  const std::string& get_error_msg() const noexcept { return error_msg_; }

  /// Log a line under the object's name, passwords masked.
  void error(std::string_view text) const;
  void warning(std::string_view text) const;
  void info(std::string_view text) const;
  void debug(std::string_view text) const;

  /// The object's name in the log.
  virtual std::string get_class_name() const { return "Weir"; }
  /// What its log lines are about.
  virtual LogFields get_log_fields() const { return {}; }

 private:
  void write_log(LogLevel level, std::string_view text) const;

  Error* error_handler_;
  std::string error_msg_;
};

}  // namespace weir
