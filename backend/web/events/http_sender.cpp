#include "backend/web/events/http_sender.h"

#include <sys/socket.h>

#include <array>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>
#include <map>

#include "backend/platform/loop.h"
#include "backend/platform/wait_queue.h"
#include "backend/web/events/curl_library.h"
#include "backend/web/events/public_address.h"

namespace weir {

namespace asio = boost::asio;
using asio::posix::stream_descriptor;
using boost::system::error_code;

namespace {

constexpr long timeout_seconds = 10;
constexpr long max_kept_connections = 16;
constexpr std::size_t max_answer_bytes = 64 * 1024;

}  // namespace

/// One request under way; it leaves the multi handle at its end.
class HttpSender::Transfer {
 public:
  Transfer(std::shared_ptr<Multi> multi, const std::string& url, const std::vector<std::string>& headers,
           std::shared_ptr<const std::string> body, bool private_addresses);
  ~Transfer();
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  void finish(CURLcode result) {
    result_ = result;
    done_ = true;
    end_.wake_all();
  }
  Async<> wait() {
    while (!done_) co_await end_.wait();
  }
  Answer answer() const;

 private:
  static std::size_t take_body(char*, std::size_t size, std::size_t count, void* self);
  static curl_socket_t open_socket(void* self, curlsocktype purpose, curl_sockaddr* address);

  std::shared_ptr<Multi> multi_;
  std::shared_ptr<const std::string> body_;
  const bool private_addresses_;
  CURL* const handle_ = curl().easy_init();
  curl_slist* headers_ = nullptr;
  std::array<char, CURL_ERROR_SIZE> error_{};
  std::size_t received_ = 0;
  bool refused_ = false;
  bool done_ = false;
  CURLcode result_ = CURLE_OK;
  WaitQueue end_;
};

/// libcurl's view of the loop: it is told which sockets are ready and when its timer has expired.
class HttpSender::Multi : public std::enable_shared_from_this<Multi> {
 public:
  Multi() {
    curl().multi_setopt(handle_, CURLMOPT_SOCKETFUNCTION, &Multi::watch);
    curl().multi_setopt(handle_, CURLMOPT_SOCKETDATA, this);
    curl().multi_setopt(handle_, CURLMOPT_TIMERFUNCTION, &Multi::set_timer);
    curl().multi_setopt(handle_, CURLMOPT_TIMERDATA, this);
    curl().multi_setopt(handle_, CURLMOPT_MAXCONNECTS, max_kept_connections);
  }
  ~Multi() { curl().multi_cleanup(handle_); }
  Multi(const Multi&) = delete;
  Multi& operator=(const Multi&) = delete;

  CURLM* handle() const { return handle_; }

 private:
  /// A socket of libcurl's, which closes it.
  struct Socket {
    explicit Socket(curl_socket_t fd) : descriptor(Loop::current().context(), fd) {}
    ~Socket() { descriptor.release(); }

    stream_descriptor descriptor;
    int wanted = 0;  ///< CURL_POLL_IN, CURL_POLL_OUT
    int awaited = 0;
  };

  static int watch(CURL*, curl_socket_t fd, int what, void* self, void*) {
    auto& sockets = static_cast<Multi*>(self)->sockets_;
    if (what == CURL_POLL_REMOVE) {
      sockets.erase(fd);
      return 0;
    }
    std::shared_ptr<Socket>& socket = sockets[fd];
    if (!socket) socket = std::make_shared<Socket>(fd);
    socket->wanted = what;
    static_cast<Multi*>(self)->wait_for(fd, socket);
    return 0;
  }

  void wait_for(curl_socket_t fd, const std::shared_ptr<Socket>& socket) {
    for (const auto& [flag, wait] : {std::pair(CURL_POLL_IN, stream_descriptor::wait_read),
                                     std::pair(CURL_POLL_OUT, stream_descriptor::wait_write)}) {
      if (!(socket->wanted & flag) || (socket->awaited & flag)) continue;
      socket->awaited |= flag;
      socket->descriptor.async_wait(wait,
                                    [self = weak_from_this(), fd, flag, weak = std::weak_ptr(socket)](error_code) {
                                      const auto ready = weak.lock();
                                      const auto multi = self.lock();
                                      if (ready && multi) multi->go_on(fd, ready, flag);
                                    });
    }
  }

  void go_on(curl_socket_t fd, const std::shared_ptr<Socket>& socket, int flag) {
    socket->awaited &= ~flag;
    if (socket->wanted & flag) act(fd, flag == CURL_POLL_IN ? CURL_CSELECT_IN : CURL_CSELECT_OUT);
    const auto current = sockets_.find(fd);
    if (current != sockets_.end() && current->second == socket) wait_for(fd, socket);
  }

  static int set_timer(CURLM*, long milliseconds, void* self) {
    asio::steady_timer& timer = static_cast<Multi*>(self)->timer_;
    timer.cancel();
    if (milliseconds < 0) return 0;
    timer.expires_after(std::chrono::milliseconds(milliseconds));
    timer.async_wait([weak = static_cast<Multi*>(self)->weak_from_this()](const error_code& error) {
      const auto multi = weak.lock();
      if (!error && multi) multi->act(CURL_SOCKET_TIMEOUT, 0);
    });
    return 0;
  }

  void act(curl_socket_t fd, int events) {
    int running = 0;
    curl().multi_socket_action(handle_, fd, events, &running);
    int left = 0;
    while (const CURLMsg* message = curl().multi_info_read(handle_, &left)) {
      if (message->msg != CURLMSG_DONE) continue;
      void* transfer = nullptr;
      curl().easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &transfer);
      static_cast<Transfer*>(transfer)->finish(message->data.result);
    }
  }

  std::map<curl_socket_t, std::shared_ptr<Socket>> sockets_;
  asio::steady_timer timer_{Loop::current().context()};
  CURLM* const handle_ = curl().multi_init();
};

HttpSender::Transfer::Transfer(std::shared_ptr<Multi> multi, const std::string& url,
                               const std::vector<std::string>& headers, std::shared_ptr<const std::string> body,
                               bool private_addresses)
    : multi_(std::move(multi)), body_(std::move(body)), private_addresses_(private_addresses) {
  for (const std::string& line : headers) headers_ = curl().slist_append(headers_, line.c_str());
  const auto set = [this](CURLoption option, auto value) { curl().easy_setopt(handle_, option, value); };
  set(CURLOPT_URL, url.c_str());
  set(CURLOPT_POSTFIELDS, body_->data());
  set(CURLOPT_POSTFIELDSIZE, static_cast<long>(body_->size()));
  set(CURLOPT_HTTPHEADER, headers_);
  set(CURLOPT_PROTOCOLS_STR, "http,https");
  set(CURLOPT_PROXY, "");
  set(CURLOPT_TIMEOUT, timeout_seconds);
  set(CURLOPT_NOSIGNAL, 1L);
  set(CURLOPT_QUICK_EXIT, 1L);  // else the end of a transfer waits for its name look-up
  // The whole bundle of certificates would take long to read.
  set(CURLOPT_CAINFO, static_cast<const char*>(nullptr));
  set(CURLOPT_CAPATH, "/etc/ssl/certs");
  set(CURLOPT_WRITEFUNCTION, &Transfer::take_body);
  set(CURLOPT_WRITEDATA, this);
  set(CURLOPT_OPENSOCKETFUNCTION, &Transfer::open_socket);
  set(CURLOPT_OPENSOCKETDATA, this);
  set(CURLOPT_ERRORBUFFER, error_.data());
  set(CURLOPT_PRIVATE, this);
  curl().multi_add_handle(multi_->handle(), handle_);
}

HttpSender::Transfer::~Transfer() {
  curl().multi_remove_handle(multi_->handle(), handle_);
  curl().easy_cleanup(handle_);
  curl().slist_free_all(headers_);
}

std::size_t HttpSender::Transfer::take_body(char*, std::size_t size, std::size_t count, void* self) {
  std::size_t& received = static_cast<Transfer*>(self)->received_;
  received += size * count;
  return received > max_answer_bytes ? 0 : size * count;
}

curl_socket_t HttpSender::Transfer::open_socket(void* self, curlsocktype, curl_sockaddr* address) {
  auto& transfer = *static_cast<Transfer*>(self);
  transfer.refused_ = !transfer.private_addresses_ && !is_public_address(address->addr);
  if (transfer.refused_) return CURL_SOCKET_BAD;
  return ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

HttpSender::Answer HttpSender::Transfer::answer() const {
  Answer answer;
  long status = 0;
  curl().easy_getinfo(handle_, CURLINFO_RESPONSE_CODE, &status);
  // With a body that is too long the answer has its status all the same.
  if (result_ == CURLE_OK || result_ == CURLE_WRITE_ERROR) answer.status = static_cast<int>(status);
  answer.refused = answer.status == 0 && refused_;
  if (answer.refused) {
    answer.error = "the receiver's address is private (--webhook-private-addresses allows that)";
  } else if (answer.status == 0) {
    answer.error = error_[0] ? error_.data() : curl().easy_strerror(result_);
  }
  return answer;
}

HttpSender::HttpSender(bool private_addresses) : private_addresses_(private_addresses) {}

HttpSender::~HttpSender() = default;

Async<HttpSender::Answer> HttpSender::post(std::string url, std::vector<std::string> headers,
                                           std::shared_ptr<const std::string> body) {
  try {
    if (!multi_) multi_ = std::make_shared<Multi>();
  } catch (const std::runtime_error& failure) {
    co_return Answer{.error = failure.what()};
  }
  headers.emplace_back("Content-Type: application/json");
  headers.emplace_back("Expect:");
  const auto transfer = std::make_unique<Transfer>(multi_, url, headers, std::move(body), private_addresses_);
  co_await transfer->wait();
  co_return transfer->answer();
}

}  // namespace weir
