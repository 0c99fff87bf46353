#include "backend/web/tls_context.h"

#include <fmt/core.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <sys/stat.h>

#include <system_error>
#include <utility>

#include "backend/base/log.h"
#include "backend/platform/failure.h"

namespace weir {

namespace {

constexpr const char* tls_1_2_ciphers = "ECDHE+AESGCM:ECDHE+CHACHA20";

// The first of the queue is the cause.
std::string take_reason() {
  const unsigned long error = ::ERR_get_error();
  ::ERR_clear_error();
  if (ERR_SYSTEM_ERROR(error)) return std::generic_category().message(ERR_GET_REASON(error));
  const char* reason = ::ERR_reason_error_string(error);
  return reason ? reason : fmt::format("error {:#x}", error);
}

void require(bool done, const std::string& what) {
  if (!done) throw ValueError(fmt::format("{}: {}", what, take_reason()));
}

// OpenSSL would ask on the terminal.
int refuse_passphrase(char*, int, int, void*) { return 0; }

void set_up(SSL_CTX* context) {
  ::SSL_CTX_set_options(context, SSL_OP_NO_COMPRESSION | SSL_OP_NO_RENEGOTIATION | SSL_OP_CIPHER_SERVER_PREFERENCE |
                                     SSL_OP_IGNORE_UNEXPECTED_EOF);
  // Idle connections hold no buffers.
  ::SSL_CTX_set_mode(context,
                     SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER | SSL_MODE_RELEASE_BUFFERS);
  // With it a read would go on inside OpenSSL for as long as a client sends records that are not data.
  ::SSL_CTX_clear_mode(context, SSL_MODE_AUTO_RETRY);
  // Clients keep their sessions as tickets.
  ::SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
  ::SSL_CTX_set_default_passwd_cb(context, refuse_passphrase);
  require(::SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION) == 1 &&
              ::SSL_CTX_set_cipher_list(context, tls_1_2_ciphers) == 1,
          "TLS can't be set up");
}

void warn_if_not_valid_now(SSL_CTX* context, const std::string& path) {
  const X509* certificate = ::SSL_CTX_get0_certificate(context);
  if (::X509_cmp_current_time(::X509_get0_notAfter(certificate)) < 0)
    log(LogLevel::warning, "Web", fmt::format("The certificate {} has expired: clients refuse it", path));
  else if (::X509_cmp_current_time(::X509_get0_notBefore(certificate)) > 0)
    log(LogLevel::warning, "Web", fmt::format("The certificate {} is not valid yet: clients refuse it", path));
}

// Other permissions count, too: they are a reason to try again.
std::string file_version(const std::string& path) {
  struct stat status{};
  if (::stat(path.c_str(), &status) != 0) return "missing";
  return fmt::format("{} {} {} {}.{}", status.st_dev, status.st_ino, status.st_size, status.st_ctim.tv_sec,
                     status.st_ctim.tv_nsec);
}

}  // namespace

TlsContext::TlsContext(std::string certificate, std::string key)
    : certificate_(std::move(certificate)),
      key_(std::move(key)),
      read_versions_(file_versions()),
      seen_versions_(read_versions_),
      handle_(load()) {}

TlsContext::Handle TlsContext::load() const {
  ::ERR_clear_error();
  const Handle context(::SSL_CTX_new(::TLS_server_method()), ::SSL_CTX_free);
  require(context != nullptr, "TLS can't be set up");
  set_up(context.get());
  require(::SSL_CTX_use_PrivateKey_file(context.get(), key_.c_str(), SSL_FILETYPE_PEM) == 1,
          fmt::format("The key {} (--tls-key) can't be used", key_));
  require(::SSL_CTX_use_certificate_chain_file(context.get(), certificate_.c_str()) == 1,
          fmt::format("The certificate {} (--tls-cert) can't be used", certificate_));
  // A certificate drops a key that was read before it and is not its own.
  if (::SSL_CTX_check_private_key(context.get()) != 1)
    throw ValueError(fmt::format("The key {} (--tls-key) is not that of the certificate {}", key_, certificate_));
  warn_if_not_valid_now(context.get(), certificate_);
  return context;
}

std::string TlsContext::file_versions() const { return file_version(certificate_) + ", " + file_version(key_); }

void TlsContext::refresh() {
  const std::string versions = file_versions();
  const bool is_settled = std::exchange(seen_versions_, versions) == versions;
  if (!is_settled || versions == read_versions_) return;
  read_versions_ = versions;
  try {
    handle_ = load();
    log(LogLevel::info, "Web", fmt::format("The certificate {} was read again", certificate_));
  } catch (const ValueError& failure) {
    log(LogLevel::error, "Web", fmt::format("{}; the one read before stays in use", failure.what()));
  }
}

}  // namespace weir
