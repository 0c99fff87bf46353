#include "backend/platform/failure.h"

#include <fmt/core.h>

#include <boost/core/demangle.hpp>
#include <cerrno>
#include <system_error>

namespace weir {

namespace {

bool assertions = true;

std::string describe(const std::exception& failure) {
  if (const auto* ours = dynamic_cast<const Failure*>(&failure)) {
    return fmt::format("{}: {}\n    raised at {}:{}", ours->kind(), failure.what(), ours->where().file_name(),
                       ours->where().line());
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

void throw_errno(const std::string& what) { throw_errno(errno, what); }

void throw_errno(int error, const std::string& what) { throw std::system_error(error, std::generic_category(), what); }

std::string format_traceback(const std::exception_ptr& failure, std::string_view task) {
  std::string text = task.empty() ? "Traceback: " : fmt::format("Traceback (task {}): ", task);
  append_chain(text, failure);
  return text;
}

}  // namespace weir
