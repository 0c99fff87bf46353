#include "backend/services/profiles/profile_store.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>

#include "tests/support/temporary_directory.h"

namespace weir {
namespace {

namespace fs = std::filesystem;

class ProfileStoreTest : public testing::Test {
 protected:
  void write(const std::string& name, const std::string& text) const {
    fs::create_directories(directory_);
    std::ofstream(directory_ + "/" + name) << text;
  }

  void load() {
    fs::create_directories(directory_);
    store_.load();
  }
  std::optional<long long> add(const Value& form) { return stored(store_.draft_new(form)); }
  bool change(long long id, const Value& form) { return stored(store_.draft_change(id, form)).has_value(); }
  std::optional<long long> stored(const std::shared_ptr<ProfileDraft>& draft) {
    return draft && store_.store(draft) ? std::optional(draft->id()) : std::nullopt;
  }

  const test::TemporaryDirectory temporary_;
  const std::string directory_ = temporary_.path() / "profiles";
  ProfileStore store_{directory_};
};

TEST_F(ProfileStoreTest, ANewDirectoryGetsTheShippedProfilesOnce) {
  store_.load();
  ASSERT_EQ(store_.list().size(), 4U);
  for (const Value& record : store_.list()) EXPECT_FALSE(record.at("video").empty() && record.at("audio").empty());
  ASSERT_TRUE(store_.remove(1));
  ProfileStore again(directory_);
  again.load();
  EXPECT_EQ(again.list().size(), 3U);
}

TEST_F(ProfileStoreTest, AProfileIsAddedChangedReadBackAndRemoved) {
  load();
  EXPECT_EQ(add(Value{{"name", "Small"}, {"video.codec", "libx264"}}), 1);
  EXPECT_TRUE(change(1, Value{{"video.width", 640}}));
  ProfileStore again(directory_);
  again.load();
  const Value expected = Value::parse(R"({"id":1,"name":"Small","video":{"codec":"libx264","width":640}})");
  EXPECT_EQ(again.read(1), expected);
  EXPECT_TRUE(again.remove(1));
  EXPECT_EQ(again.read(1), nullptr);
  EXPECT_EQ(again.get_error_msg(), "There is no profile 1");
  EXPECT_EQ(again.draft_new(Value{{"name", "Next"}})->id(), 2);
}

TEST_F(ProfileStoreTest, ARejectedFormLeavesTheProfileAsItWas) {
  load();
  add(Value{{"name", "Good"}});
  const Value before = store_.read(1);
  for (const Value& form : {Value{{"name", ""}}, Value{{"name", 3}}, Value{{"video", "libx264"}}, Value{{"", 1}},
                            Value{{"video.cvdelogo", "off"}}, Value{{"large", std::string(1 << 20, 'x')}},
                            Value{{"video.codec", "x"}, {"input.0.url", "udp://a"}}, Value{{"name.first", "x"}}}) {
    EXPECT_FALSE(change(1, form)) << form;
    EXPECT_EQ(store_.read(1), before) << form;
  }
  EXPECT_FALSE(add(Value::object()));
  EXPECT_FALSE(fs::exists(store_.path(2)));
}

TEST_F(ProfileStoreTest, ADraftIsChangedOnUntilItIsStoredOrGoesWithItsProfile) {
  load();
  add(Value{{"name", "A"}, {"video.width", 640}});
  ASSERT_TRUE(store_.keep(store_.draft_change(1, Value{{"video.width", 720}})));
  ASSERT_TRUE(store_.keep(store_.draft_change(1, Value{{"video.height", 576}})));
  ProfileStore again(directory_);
  again.load();
  EXPECT_EQ(again.read(1), Value::parse(R"({"id": 1, "name": "A", "video": {"width": 640},
                                            "draft": {"name": "A", "video": {"width": 720, "height": 576}}})"));
  EXPECT_TRUE(again.remove(1));
  EXPECT_FALSE(fs::exists(again.draft_path(1)));
}

TEST_F(ProfileStoreTest, BrokenFilesAreLeftAloneAndTheirIdsNotReused) {
  write("3.conf", R"({"name": "Three", "id": 99})");
  write("7.conf", "{");
  write("8.conf", R"({"name": "Eight", "video": []})");
  write("9.conf", R"({"name": "Nine", "a..b": 1})");
  write("9223372036854775807.conf", R"({"name": "Last"})");
  write("notes.txt", "{}");
  store_.load();
  EXPECT_EQ(store_.list(), Value::parse(R"([{"id":3,"name":"Three"}])"));
  EXPECT_EQ(add(Value{{"name", "Ten"}}), 10);
}

}  // namespace
}  // namespace weir
