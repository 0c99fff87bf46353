#include "backend/platform/failure.h"

#include <fmt/core.h>

#include <boost/core/demangle.hpp>
#include <cerrno>
#include <system_error>

namespace weir {

namespace {

bool assertions = true;

std::string describe(std::string_view kind, const std::exception& failure, const std::source_location& where) {
  return fmt::format("{}: {}\n    raised at {}:{}", kind, failure.what(), where.file_name(), where.line());
}

std::string describe(const std::exception& failure) {
  if (const auto* ours = dynamic_cast<const Failure*>(&failure)) return describe(ours->kind(), failure, ours->where());
  if (const auto* system = dynamic_cast<const SystemError*>(&failure)) {
    return describe("SystemError", failure, system->where());
  }
  return fmt::format("{}: {}", boost::core::demangle(typeid(failure).name()), failure.what());
}

void append_chain(std::string& text, const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(failure);
  } catch (const std::exception& exception) {
    text += describe(exception);
    try {
      std::rethrow_if_nested(exception);
    } catch (...) {
      text += "\n  caused by ";
      append_chain(text, std::current_exception());
    }
  } catch (...) {
    text += "an exception of unknown type";
  }
}

}  // namespace

void enable_assertions(bool enabled) noexcept { assertions = enabled; }
bool assertions_enabled() noexcept { return assertions; }

void throw_errno(const std::string& what, std::source_location where) { throw_errno(errno, what, where); }

void throw_errno(int error, const std::string& what, std::source_location where) {
  throw SystemError(error, what, where);
}

std::string format_traceback(const std::exception_ptr& failure, std::string_view task) {
  std::string text = task.empty() ? "Traceback: " : fmt::format("Traceback (task {}): ", task);
  append_chain(text, failure);
  return text;
}

}  // namespace weir
