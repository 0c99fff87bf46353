#include "backend/web/access/secrets.h"

#include <sodium.h>

#include <array>
#include <stdexcept>

namespace weir {

namespace {

void prepare() {
  static const bool ready = ::sodium_init() >= 0;
  if (!ready) throw std::runtime_error("libsodium can't be used on this machine");
}

}  // namespace

std::string hash_password(std::string_view password) {
  prepare();
  std::array<char, crypto_pwhash_STRBYTES> hash{};
  if (::crypto_pwhash_str(hash.data(), password.data(), password.size(), crypto_pwhash_OPSLIMIT_INTERACTIVE,
                          crypto_pwhash_MEMLIMIT_INTERACTIVE) != 0)
    throw std::runtime_error("Too little memory for the hash of a password (64 MiB)");
  return hash.data();
}

bool verify_password(const std::string& hash, std::string_view password) {
  prepare();
  return ::crypto_pwhash_str_verify(hash.c_str(), password.data(), password.size()) == 0;
}

const std::string& unusable_password_hash() {
  static const std::string hash = hash_password(make_secret());
  return hash;
}

std::string make_secret(std::string_view prefix) {
  prepare();
  constexpr int variant = sodium_base64_VARIANT_URLSAFE_NO_PADDING;
  std::array<unsigned char, 32> bytes{};
  ::randombytes_buf(bytes.data(), bytes.size());
  std::array<char, sodium_base64_ENCODED_LEN(32, variant)> text{};
  ::sodium_bin2base64(text.data(), text.size(), bytes.data(), bytes.size(), variant);
  return std::string(prefix) + text.data();
}

std::string hash_secret(std::string_view secret) {
  prepare();
  std::array<unsigned char, 32> hash{};
  const std::string bytes(secret);
  ::crypto_generichash(hash.data(), hash.size(), reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
                       nullptr, 0);
  std::array<char, hash.size() * 2 + 1> text{};
  return ::sodium_bin2hex(text.data(), text.size(), hash.data(), hash.size());
}

bool are_equal_secrets(std::string_view left, std::string_view right) {
  return left.size() == right.size() && ::sodium_memcmp(left.data(), right.data(), left.size()) == 0;
}

}  // namespace weir
