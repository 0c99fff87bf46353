#include "backend/platform/helper_thread.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#include <exception>
#include <memory>

#include "backend/platform/loop.h"
#include "backend/platform/task.h"

namespace weir {

namespace asio = boost::asio;

namespace {

/// The end of a piece of work, shared by the waiting task and the thread: either may go first.
class WorkWait final : public Wait {
 public:
  WorkWait(asio::thread_pool& thread, std::function<void()> work) : thread_(thread), state_(std::make_shared<State>()) {
    state_->wait = this;
    state_->work = std::move(work);
  }
  ~WorkWait() { state_->wait = nullptr; }

  void await_resume() {
    finish();
    if (state_->failure) std::rethrow_exception(state_->failure);
  }

 private:
  struct State {
    WorkWait* wait;
    std::function<void()> work;
    std::exception_ptr failure;
  };

  bool begin() override {
    asio::io_context& context = Loop::current().context();
    asio::post(thread_, [state = state_, &context, guard = asio::make_work_guard(context)] {
      try {
        state->work();
      } catch (...) {
        state->failure = std::current_exception();
      }
      asio::post(context, [state] {
        if (state->wait && state->wait->waiting()) state->wait->complete();
      });
    });
    return true;
  }

  bool cancel() noexcept override { return true; }

  asio::thread_pool& thread_;
  std::shared_ptr<State> state_;
};

}  // namespace

Async<> on_helper_thread(std::function<void()> work) {
  WorkWait wait(Loop::current().helper_thread(), std::move(work));
  co_await wait;
}

HelperThread::HelperThread() = default;
HelperThread::~HelperThread() = default;

Async<> HelperThread::run(std::function<void()> work) {
  if (!thread_) thread_ = std::make_unique<asio::thread_pool>(1);
  WorkWait wait(*thread_, std::move(work));
  co_await wait;
}

}  // namespace weir
