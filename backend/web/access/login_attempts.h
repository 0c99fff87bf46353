#pragma once

#include <chrono>
#include <map>
#include <string>

#include "backend/platform/clock.h"

namespace weir {

/// Slows down whoever guesses passwords. An address that fails is refused for longer each time; an account that is
/// guessed at from many addresses answers all of them later, but never refuses: a stranger can't lock its owner out.
class LoginAttempts {
 public:
  static constexpr std::size_t max_entries = 10'000;  ///< of addresses, and of accounts
  static constexpr std::chrono::hours memory{1};

  /// For how long the address is refused; zero when it may try. Addresses of one IPv6 network (/64) are one.
  std::chrono::seconds refusal(const std::string& address, TimePoint now) const;
  /// By how much the answer is to be delayed.
  std::chrono::seconds delay(const std::string& account, TimePoint now) const;
  void fail(const std::string& address, const std::string& account, TimePoint now);

 private:
  struct Failures {
    int count = 0;
    TimePoint last = {};
  };
  using Table = std::map<std::string, Failures>;

  static Failures find(const Table& table, const std::string& key, TimePoint now);
  static void count(Table& table, const std::string& key, TimePoint now);

  Table addresses_;
  Table accounts_;
};

/// What stands for an address where many of them are one client: an IPv6 address's first 64 bits.
std::string network_of(const std::string& address);

}  // namespace weir
