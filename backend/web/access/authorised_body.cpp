#include "backend/web/access/authorised_body.h"

#include "backend/platform/loop.h"

namespace weir {

AuthorisedBody::AuthorisedBody(std::unique_ptr<LiveBody> body, std::function<bool()> may_read)
    : body_(std::move(body)), may_read_(std::move(may_read)), asked_(now()) {}

Async<std::vector<LiveSlice>> AuthorisedBody::next() {
  using std::chrono_literals::operator""s;
  std::vector<LiveSlice> slices = co_await body_->next();
  if (now() - asked_ < 1s) co_return slices;
  asked_ = now();
  if (!may_read_()) slices.clear();
  co_return slices;
}

}  // namespace weir
