#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace weir {

inline constexpr std::size_t min_password_bytes = 8;
inline constexpr std::size_t max_password_bytes = 1024;

/// The password's argon2id hash with its salt and costs, as a text. Takes 64 MiB and about a tenth of a second; so does
/// `verify_password`. Throws `std::runtime_error` when there is no memory.
std::string hash_password(std::string_view password);
bool verify_password(const std::string& hash, std::string_view password);
/// A hash that no password fits, to be verified where there is no user: that takes as long.
const std::string& unusable_password_hash();

/// What the secret of an API token begins with, so that people know one when they see it.
inline constexpr std::string_view token_prefix = "weir_";
/// 256 random bits as text that URLs and headers can hold, after the prefix.
std::string make_secret(std::string_view prefix = {});
/// What is kept of such a secret: a BLAKE2b hash in hexadecimal digits. Not for passwords, which can be guessed.
std::string hash_secret(std::string_view secret);
/// Takes as long for every pair of texts of one size.
bool are_equal_secrets(std::string_view left, std::string_view right);

}  // namespace weir
