#include "backend/web/access/user_list.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "backend/platform/failure.h"
#include "backend/platform/files.h"
#include "backend/web/access/secrets.h"
#include "backend/web/access/users_file.h"
#include "tests/support/temporary_directory.h"

namespace weir {
namespace {

using namespace std::chrono_literals;

constexpr WallTime start{std::chrono::hours(24 * 365 * 50)};

TEST(UserListTest, RefusesNamesThatAreTakenOrUnprintable) {
  UserList list;
  list.add(User{"anna", Role::admin, "x"});
  list.add(ApiToken{"backup", Role::viewer, "x", start});
  for (const char* name : {"", "anna", "backup", "a b", "a\n", "<b>", "ann\xc3\xa4"})
    EXPECT_THROW(list.add(User{name, Role::viewer, "x"}), ValueError) << name;
  EXPECT_THROW(list.add(User{std::string(65, 'a'), Role::viewer, "x"}), ValueError);
  EXPECT_THROW(list.remove_user("backup"), ValueError);
  list.remove_token("backup");
  EXPECT_NO_THROW(list.add(User{"backup", Role::viewer, "x"}));
}

TEST(UsersFileTest, IsForItsOwnerAloneAndKeepsWhatItCanNotUnderstand) {
  const test::TemporaryDirectory directory;
  const UsersFile file(directory.path());
  EXPECT_TRUE(file.load().users.empty());
  const std::string other = directory.path() / "other";
  std::filesystem::create_symlink(other, file.path() + ".tmp");
  file.change([](UserList& list) { list.add(User{"anna", Role::operator_, "x"}); });
  struct stat status{};
  ASSERT_EQ(::lstat(file.path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, S_IFREG | 0600U);
  EXPECT_FALSE(std::filesystem::exists(other)) << "written through a link";
  EXPECT_EQ(file.load().find_user("anna")->role, Role::operator_);
  for (const char* broken : {"", "{}", R"({"users": [{"name": "a", "role": "root", "password": "x"}], "tokens": []})",
                             R"({"users": [{"name": "a", "role": "nobody", "password": "x"}], "tokens": []})",
                             R"({"users": [{"name": "a", "role": "admin"}], "tokens": []})"}) {
    std::ofstream(file.path()) << broken;
    EXPECT_THROW(file.load(), ValueError) << broken;
    EXPECT_THROW(file.change([](UserList& list) { list.add(User{"b", Role::admin, "x"}); }), ValueError);
    EXPECT_EQ(read_file(file.path(), 1 << 10), broken);
  }
}

}  // namespace
}  // namespace weir
