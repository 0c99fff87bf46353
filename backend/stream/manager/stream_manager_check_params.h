#pragma once

#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

#include "backend/base/value.h"
#include "backend/platform/async.h"
#include "backend/platform/failure.h"
#include "backend/stream/manager/stream_manager.h"

namespace weir {

namespace detail {

inline const Value* as_stream_id(const Value& argument) { return &argument; }
template <class Other>
const Value* as_stream_id(const Other&) {
  return nullptr;
}

template <class Result>
struct Fallback {
  static Result make(Result value) { return value; }
};
template <class Result>
struct Fallback<Async<Result>> {
  static Async<Result> make(Result value) { co_return value; }
};

}  // namespace detail

/// Makes a guard for operations that act on one stream: `stream_manager_check_params(false)(operation)` is called as
/// `operation` is, with the manager first, and gives `retval` in its place when the argument at `stream_id_index` names
/// no stream of the process's manager; the reason is the manager's error message then. Throws `IndexError` when there
/// is no such argument.
template <class Retval>
auto stream_manager_check_params(Retval retval, std::size_t stream_id_index = 1) {
  return [retval, stream_id_index](auto operation) {
    return [retval, stream_id_index, operation](auto&&... arguments) {
      const Value* stream_id = nullptr;
      std::size_t index = 0;
      ((index++ == stream_id_index ? stream_id = detail::as_stream_id(arguments) : nullptr), ...);
      if (!stream_id) throw IndexError("there is no stream id among the arguments");
      using Result = std::invoke_result_t<decltype(operation), decltype(arguments)...>;
      if (!stream_manager->get_stream(*stream_id)) return detail::Fallback<Result>::make(retval);
      return std::invoke(operation, std::forward<decltype(arguments)>(arguments)...);
    };
  };
}

}  // namespace weir
