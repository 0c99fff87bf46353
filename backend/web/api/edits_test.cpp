#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <tuple>

#include "backend/web/api/compression.h"
#include "backend/web/api/document_tag.h"
#include "backend/web/api/pending_changes.h"

namespace weir {
namespace {

TEST(Edits, AHeaderNamesATagInAList) {
  const std::tuple<const char*, bool, bool> cases[] = {
      // header, for If-Match, for If-None-Match
      {R"("a")", true, true},      {R"("b", "a")", true, true}, {"*", true, true},
      {R"(W/"a")", false, true},   {R"("ab")", false, false},   {"a", false, false},
      {R"("a-gzip")", true, true}, {"", false, false},          {R"( "b" , W/"a-gzip")", false, true}};
  for (const auto& [header, strong, weak] : cases) {
    EXPECT_EQ(names_tag(header, "\"a\"", false), strong) << header;
    EXPECT_EQ(names_tag(header, "\"a\"", true), weak) << header;
  }
}

TEST(Edits, PendingKeysAreThoseThatATranscoderCanTell) {
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {R"({"a": 1, "b": {"x": 1, "y": 2}})", R"({"b": {"y": 2, "x": 1}, "a": 1})", "[]"},
      {R"({"label": "a", "id": 1, "status": "running"})", R"({"label": "b", "tags": ["x"], "profile": "1"})", "[]"},
      {R"({"a": {"label": "x"}})", R"({"a": {"label": "y"}})", R"(["a.label"])"},
      {R"({"a": null, "b": {"x": ""}})", R"({"c": ""})", "[]"},
      {R"({"input": {"0": {"url": "a"}}})", R"({"input": {"0": {"url": "b"}, "1": {"url": "c"}}})",
       R"(["input.0.url","input.1.url"])"},
      {R"({"maps": [1, 2]})", R"({"maps": [2, 1]})", R"(["maps"])"},
  };
  for (const auto& [launched, document, keys] : cases)
    EXPECT_EQ(Value(list_pending_keys(Value::parse(launched), Value::parse(document))), Value::parse(keys)) << document;
}

TEST(Edits, GzipIsTakenWhereItIsNotRefused) {
  const std::pair<const char*, bool> cases[] = {{"gzip", true},      {"", false},   {"br, GZIP;q=0.5", true},
                                                {"gzip;q=0", false}, {"br", false}, {"gzip; q=0.000, br", false}};
  for (const auto& [header, accepted] : cases) EXPECT_EQ(accepts_gzip(header), accepted) << header;
}

}  // namespace
}  // namespace weir
