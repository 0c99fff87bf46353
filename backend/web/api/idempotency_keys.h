#pragma once

#include <cstddef>
#include <functional>
#include <list>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "backend/platform/async.h"
#include "backend/platform/clock.h"
#include "backend/web/request.h"
#include "backend/web/response.h"

namespace weir {

/// Answers a request that is sent again with the same Idempotency-Key as the first time, instead of doing it twice: for
/// clients that lost the answer. A key is its client's own. Answers are kept for 24 hours, the latest 1,000 of at most
/// 64 KiB; those of 500 and up are not, so that they can be tried again.
class IdempotencyKeys {
 public:
  static constexpr std::size_t max_answers = 1000;

  using Handler = std::function<Async<Response>(Request)>;

  /// Answers the request, which has a key, by `handler` or as before. 409 while the first one is being answered; 422
  /// when the key came with another request. Outlives the call.
  Async<Response> answer(Request request, Handler handler);

 private:
  struct Entry {
    std::string name;     ///< the client and its key
    std::string request;  ///< a hash of it
    TimePoint time;
    bool is_done = false;
    int status = 0;
    std::string content_type = {};
    std::string body = {};
    std::vector<std::pair<std::string, std::string>> headers = {};
  };
  using Entries = std::list<Entry>;
  class Attempt;

  static Response repeat(const Entry& entry, const std::string& request);
  void forget_old();
  void erase(Entries::iterator entry);

  Entries entries_;  ///< the oldest first
  std::unordered_map<std::string, Entries::iterator> by_name_;
};

}  // namespace weir
