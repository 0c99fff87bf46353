#include "backend/web/api/idempotency_keys.h"

#include <fmt/core.h>

#include <chrono>
#include <iterator>

#include "backend/web/api/document_tag.h"

namespace weir {

namespace {

constexpr std::chrono::hours kept_for{24};
constexpr std::size_t max_key_bytes = 255;
constexpr std::size_t max_body_bytes = 64 * 1024;

std::string hash_request(const Request& request) {
  std::string text = request.method;
  for (const std::string& segment : request.target.path) text += "/" + segment;
  for (const auto& [name, value] : request.target.query) text += fmt::format("\n{}\t{}", name, value);
  return make_text_tag(text + "\n\n" + request.body);
}

bool can_be_kept(const Response& response) {
  return response.status < 500 && !response.is_live && !response.file && response.body.size() <= max_body_bytes;
}

}  // namespace

/// A request under way. What is not kept in the end can be tried again, also when the client leaves before.
class IdempotencyKeys::Attempt {
 public:
  Attempt(IdempotencyKeys& keys, Entries::iterator entry) : keys_(keys), entry_(entry) {}
  ~Attempt() {
    if (!entry_->is_done) keys_.erase(entry_);
  }
  Attempt(const Attempt&) = delete;
  Attempt& operator=(const Attempt&) = delete;

  void keep(const Response& response) {
    entry_->status = response.status;
    entry_->content_type = response.content_type;
    entry_->body = response.body;
    entry_->headers = response.headers;
    entry_->is_done = true;
  }

 private:
  IdempotencyKeys& keys_;
  Entries::iterator entry_;
};

Async<Response> IdempotencyKeys::answer(Request request, Handler handler) {
  if (request.idempotency_key.size() > max_key_bytes)
    co_return error_response(400, fmt::format("Idempotency-Key: longer than {} bytes", max_key_bytes));
  forget_old();
  // A client with a name may come back from another address.
  const Identity& identity = request.identity;
  const std::string name =
      fmt::format("{} {} {}", to_word(identity.role), identity.name.empty() ? request.client_address : identity.name,
                  request.idempotency_key);
  const std::string hash = hash_request(request);
  if (const auto known = by_name_.find(name); known != by_name_.end()) co_return repeat(*known->second, hash);
  if (entries_.size() >= max_answers)
    co_return error_response(503, "Too many requests with an Idempotency-Key at once");
  entries_.push_back({.name = name, .request = hash, .time = now()});
  by_name_[name] = std::prev(entries_.end());
  Attempt attempt(*this, by_name_[name]);
  // Whoever repeats it may not take what the first one took.
  request.accept_encoding.clear();
  Response response = co_await handler(std::move(request));
  if (can_be_kept(response)) attempt.keep(response);
  co_return response;
}

Response IdempotencyKeys::repeat(const Entry& entry, const std::string& request) {
  if (entry.request != request) return error_response(422, "Idempotency-Key: it came with another request before");
  if (!entry.is_done) return error_response(409, "The request with this Idempotency-Key is being answered");
  Response response;
  response.status = entry.status;
  response.content_type = entry.content_type;
  response.body = entry.body;
  response.headers = entry.headers;
  return response;
}

// Of too many the oldest that is answered goes.
void IdempotencyKeys::forget_old() {
  for (auto entry = entries_.begin(); entry != entries_.end();) {
    const auto next = std::next(entry);
    const bool is_needed = now() - entry->time < kept_for && entries_.size() < max_answers;
    if (is_needed) return;
    if (entry->is_done) erase(entry);
    entry = next;
  }
}

void IdempotencyKeys::erase(Entries::iterator entry) {
  by_name_.erase(entry->name);
  entries_.erase(entry);
}

}  // namespace weir
