#pragma once

#include <functional>
#include <memory>

#include "backend/platform/clock.h"
#include "backend/web/live_body.h"

namespace weir {

/// A live body that ends once its reader may not read it any more: after a logout, with the user or the token, and when
/// the role changes. Nothing is handed out without having asked within the last second.
class AuthorisedBody final : public LiveBody {
 public:
  /// `may_read` is asked for as long as this lives.
  AuthorisedBody(std::unique_ptr<LiveBody> body, std::function<bool()> may_read);

  Async<std::vector<LiveSlice>> next() override;
  int send_buffer_bytes() const override { return body_->send_buffer_bytes(); }

 private:
  std::unique_ptr<LiveBody> body_;
  std::function<bool()> may_read_;
  TimePoint asked_;
};

}  // namespace weir
