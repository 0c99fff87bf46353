#include "backend/web/access/user_list.h"

#include <fmt/core.h>

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

#include "backend/base/members.h"
#include "backend/platform/failure.h"
#include "backend/web/access/secrets.h"

namespace weir {

namespace {

// Names stand in log lines and tables.
bool is_name(std::string_view text) {
  const auto is_allowed = [](unsigned char c) {
    return std::isalnum(c) || c == '.' || c == '_' || c == '-' || c == '@';
  };
  return !text.empty() && text.size() <= UserList::max_name && std::ranges::all_of(text, is_allowed);
}

std::string read_text(const Value& entry, const char* name) {
  const Value& text = member(entry, name);
  if (!text.is_string() || text.get_ref<const std::string&>().empty())
    throw ValueError(fmt::format("\"{}\" of an entry is not a text", name));
  return text.get<std::string>();
}

Role read_role(const Value& entry) {
  const std::string word = read_text(entry, "role");
  const auto role = parse_role(word);
  if (!role) throw ValueError(fmt::format("role: \"{}\" is not admin, operator or viewer", word));
  return *role;
}

std::optional<WallTime> read_time(const Value& entry, const char* name) {
  const Value& seconds = member(entry, name);
  if (seconds.is_null()) return std::nullopt;
  constexpr long long latest = 253'402'300'799;  // the year 9999
  if (!seconds.is_number_integer() || seconds.get<long long>() < 0 || seconds.get<long long>() > latest)
    throw ValueError(fmt::format("\"{}\" of an entry is not a time in seconds since 1970", name));
  return WallTime(std::chrono::seconds(seconds.get<long long>()));
}

Value to_value(WallTime time) {
  return std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count();
}

const Value& list_of(const Value& document, const char* name) {
  const Value& list = member(document, name);
  if (!list.is_array()) throw ValueError(fmt::format("\"{}\" is not a list", name));
  return list;
}

template <class Entry>
void remove_named(std::vector<Entry>& entries, std::string_view name, const char* what) {
  const auto removed = std::erase_if(entries, [&](const Entry& entry) { return entry.name == name; });
  if (removed == 0) throw ValueError(fmt::format("There is no {} \"{}\"", what, name));
}

}  // namespace

const User* UserList::find_user(std::string_view name) const {
  const auto found = std::ranges::find(users, name, &User::name);
  return found == users.end() ? nullptr : &*found;
}

User* UserList::find_user(std::string_view name) {
  return const_cast<User*>(static_cast<const UserList&>(*this).find_user(name));
}

const ApiToken* UserList::find_token(std::string_view secret, WallTime now) const {
  const std::string hash = hash_secret(secret);
  const auto found = std::ranges::find_if(tokens, [&](const ApiToken& t) { return are_equal_secrets(t.hash, hash); });
  if (found == tokens.end() || (found->expires && *found->expires <= now)) return nullptr;
  return &*found;
}

void UserList::add(User user) {
  check_new(user.name, users.size());
  users.push_back(std::move(user));
}

void UserList::add(ApiToken token) {
  check_new(token.name, tokens.size());
  tokens.push_back(std::move(token));
}

void UserList::check_new(const std::string& name, std::size_t entries) const {
  if (!is_name(name))
    throw ValueError(fmt::format("\"{}\" is not a name: 1 to {} letters, digits and . _ - @", name, max_name));
  if (find_user(name)) throw ValueError(fmt::format("There is a user \"{}\" already", name));
  if (std::ranges::find(tokens, name, &ApiToken::name) != tokens.end())
    throw ValueError(fmt::format("There is a token \"{}\" already; remove it first", name));
  if (entries >= max_entries) throw ValueError(fmt::format("There are {} already; remove some first", max_entries));
}

void UserList::remove_user(std::string_view name) { remove_named(users, name, "user"); }
void UserList::remove_token(std::string_view name) { remove_named(tokens, name, "token"); }

Value to_document(const UserList& list) {
  Value users = Value::array();
  for (const User& user : list.users)
    users.push_back({{"name", user.name}, {"role", to_word(user.role)}, {"password", user.password_hash}});
  Value tokens = Value::array();
  for (const ApiToken& token : list.tokens)
    tokens.push_back({{"name", token.name},
                      {"role", to_word(token.role)},
                      {"hash", token.hash},
                      {"created", to_value(token.created)},
                      {"expires", token.expires ? to_value(*token.expires) : Value()}});
  return {{"users", std::move(users)}, {"tokens", std::move(tokens)}};
}

UserList read_user_list(const Value& document) {
  UserList list;
  for (const Value& entry : list_of(document, "users"))
    list.add(User{read_text(entry, "name"), read_role(entry), read_text(entry, "password")});
  for (const Value& entry : list_of(document, "tokens"))
    list.add(ApiToken{read_text(entry, "name"), read_role(entry), read_text(entry, "hash"),
                      read_time(entry, "created").value_or(WallTime()), read_time(entry, "expires")});
  return list;
}

}  // namespace weir
