#include "backend/web/masked_value.h"

#include <fmt/core.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <random>

#include "backend/base/document_secrets.h"
#include "backend/base/mask_passwords.h"
#include "backend/base/text_form.h"
#include "backend/web/response.h"

namespace weir {
namespace {

/// Documents with secrets in every place where one can be.
class Generator {
 public:
  explicit Generator(unsigned seed) : random_(seed) {}

  Value make_document() {
    Value document = {{"label", "News from " + make_url()}, {"tags", {"a", "b"}}};
    for (int i = 0; i <= pick(3); ++i) document["input"][std::to_string(i)] = make_input();
    for (int i = 0; i <= pick(3); ++i) document["output"][std::to_string(i)] = make_output(i);
    document["later"] = {{"deep", {Value{{"api_token", make_secret()}}, make_url()}}};
    return document;
  }

  std::vector<std::string> secrets;
  std::vector<std::string> urls;

 private:
  int pick(int count) { return std::uniform_int_distribution(0, count - 1)(random_); }

  // "Zq" shows where one begins.
  std::string make_secret(std::string_view more = "") {
    const std::string characters = "abcXYZ0189-._~!$'()*+,:;=@%|[]{}" + std::string(more);
    std::string secret = "Zq";
    for (int i = 0; i < 8 + pick(12); ++i)
      secret += characters[static_cast<std::size_t>(pick(static_cast<int>(characters.size())))];
    secrets.push_back(secret);
    return secret;
  }

  std::string make_url() {
    const std::string user = pick(2) ? "user:" + make_secret() + "@" : "";
    const std::string host = user + "cam.example:1234";
    switch (pick(4)) {
      case 0:
        urls.push_back(fmt::format("rtmp{}://{}/live/{}", pick(2) ? "s" : "", host, make_secret("/?&")));
        break;
      case 1:
        urls.push_back(fmt::format("srt://{}?mode=caller&passphrase={}&latency=20", host, make_secret("/?#")));
        break;
      case 2:
        urls.push_back(fmt::format("https://{}/a/b.m3u8?x=1&Access-Token={}&{}={}", host, make_secret("/?"),
                                   pick(2) ? "sig" : "key", make_secret()));
        break;
      default:
        urls.push_back(fmt::format("rtsp://{}/1", host));
    }
    return urls.back();
  }

  Value make_input() {
    Value input = {{"url", make_url()}, {"re", true}};
    if (pick(2)) {
      input["options"] = {{"passphrase", make_secret("/?# ")}, {"latency", 20}};
    } else {
      input["options"] = {{"headers", "Authorization: Bearer " + make_secret()}, {"http_proxy", make_url()}};
    }
    return input;
  }

  Value make_output(int number) {
    if (pick(2)) return {{"protocol", "srt"}, {"hostname", "h"}, {"port", number}, {"streamid", make_secret("#/")}};
    return {{"protocol", "rtmp"}, {"server", "live.example"},      {"port", number},           {"app", "live"},
            {"username", "u"},    {"playpath", make_secret("/?")}, {"password", make_secret()}};
  }

  std::mt19937 random_;
};

Value as_shown(Value document) {
  mask_value(document);
  return document;
}

void expect_none(const std::string& text, const std::vector<std::string>& secrets, unsigned seed) {
  for (const std::string& secret : secrets)
    EXPECT_EQ(text.find(secret.substr(0, 6)), std::string::npos) << "seed " << seed << ": " << secret << " in " << text;
}

TEST(MaskedValueTest, NoSecretOfAnyDocumentIsShownAndWhatIsSentBackMaskedStays) {
  for (unsigned seed = 0; seed < 2000; ++seed) {
    Generator generator(seed);
    const Value document = generator.make_document();
    const Value shown = as_shown(document);
    expect_none(to_json(shown), generator.secrets, seed);
    EXPECT_EQ(as_shown(shown), shown);
    EXPECT_EQ(shown.at("input").size(), document.at("input").size());
    for (const std::string& url : generator.urls) {
      for (const char* line : {"Error opening input {}: Connection refused", "Output #0, flv, to '{}':", "[f=flv]{}"})
        expect_none(mask_passwords(fmt::format(fmt::runtime(line), url)), generator.secrets, seed);
      EXPECT_NE(mask_passwords(url).find("cam.example:1234"), std::string::npos) << url;
    }
    expect_none(mask_secrets_of(document, "Server error: no such stream: " + generator.secrets.front()),
                generator.secrets, seed);
    JsonConf stored;
    stored.replace_document(document);
    Value form = shown;
    restore_secrets(form, stored);
    EXPECT_EQ(form, document) << "seed " << seed;
    if (HasFailure()) return;
  }
}

TEST(MaskedValueTest, OfAFormEachMaskedSecretIsRestoredOrRefused) {
  JsonConf stored;
  stored.replace_document(Value::parse(
      R"({"input": {"0": {"url": "rtsp://u:one@a/"}, "1": {"url": "rtsp://u:two@b/"}}, "label": "a *** b",
          "output": {"0": {"protocol": "rtmp", "server": "x", "playpath": "first"},
                     "1": {"protocol": "rtmp", "server": "y", "playpath": "second"}}})"));
  for (const auto& [form, restored] : {
           std::pair{R"({"input.1.url": "rtsp://u:***@b/"})", R"({"input.1.url": "rtsp://u:two@b/"})"},
           // the inputs in another order, and an output that was moved
           {R"({"input": {"0": {"url": "rtsp://u:***@b/"}, "1": {"url": "rtsp://u:***@a/"}}})",
            R"({"input": {"0": {"url": "rtsp://u:two@b/"}, "1": {"url": "rtsp://u:one@a/"}}})"},
           {R"({"output": {"0": {"protocol": "rtmp", "server": "y", "playpath": "***"}}})",
            R"({"output": {"0": {"protocol": "rtmp", "server": "y", "playpath": "second"}}})"},
           {R"({"output.0": {"server": "z", "playpath": "***"}})",
            R"({"output.0": {"server": "z", "playpath": "first"}})"},
           {R"({"output.0.playpath": "new", "label": "c *** d"})",
            R"({"output.0.playpath": "new", "label": "c *** d"})"},
       }) {
    Value value = Value::parse(form);
    restore_secrets(value, stored);
    EXPECT_EQ(value, Value::parse(restored));
  }
  for (const auto& [form, key] : {
           std::pair{R"({"input.1.url": "rtsp://u:***@c/"})", "input.1.url"},
           {R"({"input": {"2": {"url": "rtsp://u:***@c/"}}})", "input.2.url"},
           {R"({"output.2.playpath": "***"})", "output.2.playpath"},
           {R"({"output.0": {"headers": {"x": "***"}}})", "output.0.headers"},
           {R"({"passphrase": "***"})", "passphrase"},
       }) {
    Value value = Value::parse(form);
    try {
      restore_secrets(value, stored);
      ADD_FAILURE() << form;
    } catch (const HttpError& refusal) {
      EXPECT_EQ(refusal.status(), 400);
      EXPECT_TRUE(std::string(refusal.what()).starts_with(std::string(key) + ": ")) << refusal.what();
    }
  }
}

}  // namespace
}  // namespace weir
