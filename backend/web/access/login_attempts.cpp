#include "backend/web/access/login_attempts.h"

#include <algorithm>
#include <boost/asio/ip/address.hpp>

namespace weir {

namespace {

using std::chrono::seconds;

constexpr int free_failures = 5;
constexpr seconds max_refusal{900};
constexpr int quick_failures = 10;
constexpr seconds max_delay{4};

// 1 s, 2 s, 4 s …
seconds doubled(int times, seconds limit) { return std::min(seconds(1LL << std::min(times, 20)), limit); }

}  // namespace

std::string network_of(const std::string& address) {
  boost::system::error_code error;
  const auto parsed = boost::asio::ip::make_address(address, error);
  if (error || !parsed.is_v6()) return address;
  auto bytes = parsed.to_v6().to_bytes();
  std::fill(bytes.begin() + 8, bytes.end(), 0);
  return boost::asio::ip::address_v6(bytes).to_string();
}

seconds LoginAttempts::refusal(const std::string& address, TimePoint now) const {
  const Failures failures = find(addresses_, network_of(address), now);
  if (failures.count < free_failures) return {};
  const TimePoint end = failures.last + doubled(failures.count - free_failures, max_refusal);
  return std::max(std::chrono::ceil<seconds>(end - now), seconds(0));
}

seconds LoginAttempts::delay(const std::string& account, TimePoint now) const {
  const int count = find(accounts_, account, now).count;
  return count < quick_failures ? seconds(0) : doubled(count / quick_failures - 1, max_delay);
}

void LoginAttempts::fail(const std::string& address, const std::string& account, TimePoint now) {
  count(addresses_, network_of(address), now);
  count(accounts_, account, now);
}

LoginAttempts::Failures LoginAttempts::find(const Table& table, const std::string& key, TimePoint now) {
  const auto found = table.find(key);
  return found == table.end() || now - found->second.last >= memory ? Failures() : found->second;
}

void LoginAttempts::count(Table& table, const std::string& key, TimePoint now) {
  if (table.size() >= max_entries && !table.contains(key)) {
    std::erase_if(table, [&](const auto& entry) { return now - entry.second.last >= memory; });
    if (table.size() >= max_entries)
      table.erase(std::ranges::min_element(table, {}, [](const auto& entry) { return entry.second.last; }));
  }
  const int before = find(table, key, now).count;
  table[key] = {before + 1, now};
}

}  // namespace weir
