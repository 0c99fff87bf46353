#pragma once

#include <memory>
#include <string>

struct ssl_ctx_st;

namespace weir {

/// Certificate and key of the server's TLS: version 1.2 and up, ciphers with forward secrecy and authentication.
class TlsContext {
 public:
  using Handle = std::shared_ptr<ssl_ctx_st>;

  /// Reads the PEM files: the certificate with its chain, and its key, which has no passphrase. A certificate that is
  /// not valid now is logged. Throws `ValueError` for files that can't be used, or not together.
  TlsContext(std::string certificate, std::string key);

  /// What new connections use.
  const Handle& handle() const noexcept { return handle_; }
  /// Reads the files again once they have changed, and not since the last call: they are replaced one after the other.
  /// Files that can't be used are logged, and what was read before stays in use.
  void refresh();

 private:
  Handle load() const;
  std::string file_versions() const;

  std::string certificate_;
  std::string key_;
  std::string read_versions_;
  std::string seen_versions_;
  Handle handle_;
};

}  // namespace weir
