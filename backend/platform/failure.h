#pragma once

#include <exception>
#include <source_location>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace weir {

/// An unexpected failure: what went wrong and where it was raised. Expected failures are results, not exceptions.
class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string& message, std::source_location where = std::source_location::current())
      : std::runtime_error(message), where_(where) {}

  /// The name of the failure's class, as a traceback shows it.
  virtual std::string_view kind() const noexcept = 0;
  const std::source_location& where() const noexcept { return where_; }

 private:
  std::source_location where_;
};

/// A value of the right kind whose content is wrong: a text that is not a number.
class ValueError : public Failure {
 public:
  using Failure::Failure;
  std::string_view kind() const noexcept override { return "ValueError"; }
};

/// A value lacks the operation that is asked of it: trimming a number, copying members into a null.
class AttributeError : public Failure {
 public:
  using Failure::Failure;
  std::string_view kind() const noexcept override { return "AttributeError"; }
};

/// A value of the wrong kind.
class TypeError : public Failure {
 public:
  using Failure::Failure;
  std::string_view kind() const noexcept override { return "TypeError"; }
};

/// A member that has to be there is absent.
class KeyError : public Failure {
 public:
  using Failure::Failure;
  std::string_view kind() const noexcept override { return "KeyError"; }
};

/// A position outside a sequence.
class IndexError : public Failure {
 public:
  using Failure::Failure;
  std::string_view kind() const noexcept override { return "IndexError"; }
};

class ZeroDivisionError : public Failure {
 public:
  using Failure::Failure;
  std::string_view kind() const noexcept override { return "ZeroDivisionError"; }
};

/// A figure beyond what its type can hold.
class OverflowError : public Failure {
 public:
  using Failure::Failure;
  std::string_view kind() const noexcept override { return "OverflowError"; }
};

/// An assertion check did not hold; see `check_assertion`.
class AssertionError : public Failure {
 public:
  using Failure::Failure;
  std::string_view kind() const noexcept override { return "AssertionError"; }
};

/// The process that is asked about has gone.
class NoSuchProcess : public Failure {
 public:
  using Failure::Failure;
  std::string_view kind() const noexcept override { return "NoSuchProcess"; }
};

/// A failure of the operating system. Guards catch it as `std::system_error`, as the standard library throws those.
class SystemError : public std::system_error {
 public:
  /// `error` is an `errno`; `what` names the call and its object.
  SystemError(int error, const std::string& what, std::source_location where = std::source_location::current())
      : std::system_error(error, std::generic_category(), what), where_(where) {}

  const std::source_location& where() const noexcept { return where_; }

 private:
  std::source_location where_;
};

/// Assertion checks are part of what the system does and a setting of the process, on by default.
void enable_assertions(bool enabled) noexcept;
bool assertions_enabled() noexcept;

/// Throws `SystemError` with the present `errno`; `what` names the call and its object.
[[noreturn]] void throw_errno(const std::string& what, std::source_location where = std::source_location::current());
[[noreturn]] void throw_errno(int error, const std::string& what,
                              std::source_location where = std::source_location::current());

/// The name of the running task; empty outside any task.
std::string_view current_task_name() noexcept;

/// The failure as a person reads it in the log: the task it happened in, then type, message and place of the failure
/// and of each nested cause. `task` may be empty.
std::string format_traceback(const std::exception_ptr& failure, std::string_view task = current_task_name());

}  // namespace weir
