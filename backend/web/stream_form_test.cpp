#include "backend/web/stream_form.h"

#include <fmt/core.h>
#include <gtest/gtest.h>

#include <random>

#include "backend/base/bounded_json.h"
#include "backend/collaborators/version.h"
#include "backend/stream/manager/stream_manager.h"
#include "backend/web/response.h"
#include "tests/support/fake_siblings.h"

namespace weir {
namespace {

class StreamFormTest : public testing::Test {
 protected:
  // Runs the preparation; empty with the refusal in `reason_` when it is refused.
  std::optional<Value> prepare(Async<Value> prepared) {
    try {
      return world_.loop.run(std::move(prepared));
    } catch (const HttpError& refusal) {
      reason_ = refusal.what();
      return std::nullopt;
    }
  }

  // What a server that starts makes of the stream's file.
  static std::shared_ptr<StreamConfig> load_again(const StreamConfig& conf) {
    auto again = std::make_shared<StreamConfig>(conf.filename);
    EXPECT_TRUE(again->load_json_conf()) << again->get_error_msg() << "\n" << conf.document();
    StreamConfigVersionControl(*again).update();
    return again;
  }

  // The same members in any order.
  static nlohmann::json unordered(const StreamConfig& conf) { return nlohmann::json::parse(to_json(conf.document())); }

  bool add(const Value& posted) {
    const auto form = prepare(prepare_new_stream(manager_.stream_next_id, posted));
    return form && manager_.add_stream(*form);
  }

  test::FakeSiblings world_;
  StreamManager manager_;
  std::string reason_;
};

TEST_F(StreamFormTest, RefusesWhatCanNotBeUsedWithItsKey) {
  const auto output = [](const std::string& members) {
    return fmt::format(R"({{"input":{{}},"output":{{"0":{{{}}}}}}})", members);
  };
  const auto members = [](int count) {
    std::string text = R"({"input":{},"output":{},"video":{"a":0)";
    for (int i = 1; i < count; ++i) text += fmt::format(R"(,"k{}":{})", i, i);
    return text + "}}";
  };
  std::string large = R"({"input":{},"output":{})";
  for (int i = 0; i < 8; ++i) large += fmt::format(R"(,"k{}":"{}")", i, std::string(130'600, 'x'));
  large += "}";
  const std::pair<std::string, const char*> cases[] = {
      {R"({"input":{"0":{"url":" "},"1":{"url":"b"}},"output":{}})", "input.0.url: the first input needs"},
      {output(R"("protocol":"rtmp","server":"s","port":1,"app":"/","playpath":"p")"), "output.0: would be lost"},
      {output(R"("protocol":"srt","port":1)"), "output.0.hostname: missing; a caller"},
      {output(R"("protocol":"srt","hostname":"h","port":1,"streamid":"a b")"), "output.0.streamid: not a"},
      {output(R"("protocol":"srt","hostname":"h","port":1,"passphrase":"ninebytes")"),
       "output.0.passphrase: not a text of 10 to 79 bytes"},
      {output(R"("protocol":"udp","hostname":"a\u0000b","port":1)"), "output.0.hostname: a text can't hold"},
      {output(R"("protocol":"udp","hostname":"h","port":1,"a\u0000":1)"), "a text can't hold"},
      {output(fmt::format(R"("protocol":"hls","playlist_name":"{}.m3u8")", std::string(247, 'x'))),
       "output.0.playlist_name: longer than 251 bytes"},
      {R"({"input":{},"output":{},"video.filters":")" + std::string(128 * 1024, 'x') + "\"}",
       "video.filters: longer than 131071 bytes"},
      {large, "larger than 1044480 bytes"},
      {members(980), "more than 968 members in one mapping"},
  };
  for (const auto& [form, reason] : cases) {
    EXPECT_FALSE(prepare(prepare_new_stream(0, parse_json(form)))) << form;
    EXPECT_NE(reason_.find(reason), std::string::npos) << reason_;
  }
  EXPECT_TRUE(
      add(parse_json(output(fmt::format(R"("protocol":"hls","playlist_name":"{}.m3u8")", std::string(246, 'x'))))));
  EXPECT_TRUE(add(parse_json(members(960))));
}

TEST_F(StreamFormTest, InputsAreNumberedBeforeTheyInherit) {
  ASSERT_TRUE(
      add(Value::parse(R"({"input":{"5":{"url":"udp://b"},"2":{"url":"udp://a","re":true},"3":null},"output":{}})")));
  EXPECT_EQ(manager_.streams.at(0)->conf->get_json_conf("input").dump(),
            R"({"0":{"url":"udp://a","re":true},"1":{"url":"udp://b","re":true}})");
}

TEST_F(StreamFormTest, AProfileThatItsStreamCanNotKeepIsRefused) {
  world_.add_profile(1, Value::parse(R"({"video":{"codec":"x"}})"));
  ASSERT_TRUE(add(Value::parse(R"({"profile":"01","input":{},"output":{},"video.map":"0:v:1"})")));
  const auto try_change = [&](const Value& changes) {
    world_.loop.run(try_profile(manager_.streams.at(0)->conf, world_.profiles.draft_change(1, changes)));
  };
  try_change({{"video.preset", "fast"}});
  EXPECT_THROW(try_change({{"video.filters", std::string("a\0b", 3)}}), HttpError);
  EXPECT_THROW(try_change({{"video.filters", std::string(131'072, 'x')}}), HttpError);
}

// --- whatever is accepted ---

/// Documents near the edges of what is possible, the same ones in every run.
class Generator {
 public:
  explicit Generator(unsigned seed) : random_(seed) {}

  Value form(bool complete) {
    Value form = Value::object();
    if (complete || chance(3)) put(form, "input", inputs());
    if (complete || chance(3)) put(form, "output", outputs());
    if (chance(2)) form["profile"] = pick<Value>({"1", "01", "2", nullptr, "3", "99999999999999999999", ""});
    for (int i = number(3); i > 0; --i)
      form[pick<std::string>({"label", "min_speed", "video.map", "video", "video.cvdelogo.filename", "video.cvdelogo",
                              "audio.map", "subtitle", "max_sys_mem", "input.0.url", "input.1", "input.00.re",
                              "output.1.port", "output.0.playlist_name", "extra.a.b"})] = value();
    return form;
  }

 private:
  int number(int end) { return static_cast<int>(random_() % static_cast<unsigned>(end)); }
  bool chance(int of) { return number(of) == 0; }
  template <class T>
  T pick(std::vector<T> from) {
    return from[static_cast<std::size_t>(number(static_cast<int>(from.size())))];
  }

  Value value() {
    static const Value values = Value::parse(R"([null, "", "x", " x ", "/", "a/", "//a/b", 0, 7, -1.5, true, "\u00a0",
        {}, [1], {"filename": "logo.png"}, {"url": "udp://c"}, {"map": "v:1"}])");
    return values[static_cast<std::size_t>(number(static_cast<int>(values.size())))];
  }
  std::string key() { return pick<std::string>({"0", "1", "2", "00", "01", "5", "10", "a", "-0", "switch"}); }
  Value inputs() {
    Value inputs = Value::object();
    for (int i = number(4); i > 0; --i) {
      Value input = Value::object();
      if (!chance(16)) input["url"] = chance(12) ? value() : Value("udp://a");
      if (chance(6)) input[pick<std::string>({"format", "re", "options"})] = value();
      inputs[key()] = chance(12) ? value() : input;
    }
    return inputs;
  }
  Value outputs() {
    Value outputs = Value::object();
    for (int i = number(4); i > 0; --i) {
      Value output{{"protocol", pick<Value>({"udp", "hls", "rtmp", "rtsp", "file", "http", nullptr})}};
      const Value usual{{"hostname", "h"},      {"port", 1935},
                        {"server", "h"},        {"app", "/a"},
                        {"playpath", "//b/c"},  {"path", output.at("protocol") == "file" ? "" : "/d"},
                        {"filename", "e/f.ts"}, {"playlist_name", "g/x.m3u8"}};
      for (const auto& [field, text] : usual.items())
        if (!chance(12)) output[field] = chance(12) ? value() : text;
      outputs[key()] = chance(12) ? value() : output;
    }
    return outputs;
  }
  // Under its own key, or each member under a dotted one.
  void put(Value& form, const std::string& name, const Value& members) {
    if (chance(2) && !members.empty()) {
      for (const auto& [key, value] : members.items()) form[name + "." + key] = value;
    } else {
      form[name] = members;
    }
  }

  std::mt19937 random_;
};

TEST_F(StreamFormTest, WhatIsAcceptedIsTheSameDocumentAfterEveryRestart) {
  world_.add_profile(1, Value::parse(R"({"video":{"codec":"x","cvdelogo":null},"audio":null})"));
  world_.add_profile(2, Value::parse(R"({"video":null,"extra":{"a":1}})"));
  Generator generator(20261123);
  int accepted = 0;
  int changed = 0;
  for (int i = 0; i < 2000; ++i) {
    const Value posted = generator.form(true);
    if (!add(posted)) continue;
    ++accepted;
    const std::shared_ptr<Stream> stream = manager_.streams.rbegin()->second;
    const auto again = load_again(*stream->conf);
    ASSERT_EQ(unordered(*again), unordered(*stream->conf)) << posted;
    const Value change = generator.form(false);
    const auto form = prepare(prepare_change(stream->conf, change));
    const auto form_again = prepare(prepare_change(again, change));
    ASSERT_EQ(form.has_value(), form_again.has_value()) << posted << "\n" << change << "\n" << reason_;
    if (form) {
      ++changed;
      stream->set_status("restarting");
      ASSERT_TRUE(manager_.save_stream(stream->id, *form)) << posted << "\n" << change;
      const auto after = load_again(*stream->conf);
      ASSERT_EQ(unordered(*after), unordered(*stream->conf)) << posted << "\n" << change;
      ASSERT_TRUE(again->set_json_conf("status", "restarting") && again->load_json_conf(*form_again));
      ASSERT_EQ(unordered(*again), unordered(*stream->conf)) << posted << "\n" << change;
    }
    stream->set_status("stopped");
    ASSERT_TRUE(manager_.delete_stream(stream->id));
  }
  EXPECT_GT(accepted, 200);
  EXPECT_GT(changed, 100);
}

}  // namespace
}  // namespace weir
