#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <stdexcept>

#include "backend/platform/loop.h"
#include "backend/platform/task.h"
#include "tests/support/test_loop.h"

namespace weir::test {

template <class T>
Async<> keep_result(Async<T> body, std::optional<T>* result) {
  *result = co_await std::move(body);
}

/// Runs the activity on the real clock to its end and gives its result.
template <class T>
T run_for_real(Loop& loop, Async<T> body, std::chrono::seconds timeout = std::chrono::seconds(60)) {
  std::optional<T> result;
  const Task task = spawn("test", keep_result(std::move(body), &result));
  if (!test::run_until(loop, [&] { return result.has_value(); }, timeout))
    throw std::runtime_error("no result in time");
  return std::move(*result);
}

}  // namespace weir::test
