// The simulator's JSON layer: what a hostile or careless file is refused with, and the indexed
// object type that keeps the author's field order while finding fields in constant time.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "sim/common/indexed_map.h"
#include "sim/common/json_util.h"

namespace nw::sim {
namespace {

std::string ParseError(std::string_view text) {
  Json doc;
  std::string error;
  EXPECT_FALSE(ParseJsonText(text, "s.json", &doc, &error)) << text;
  return error;
}

std::string Nested(int depth) {
  return std::string(static_cast<size_t>(depth), '[') +
         std::string(static_cast<size_t>(depth), ']');
}

std::string Repeated(const std::string& step, int times) {
  std::string path;
  for (int i = 0; i < times; ++i) path += step;
  return path;
}

TEST(JsonText, RefusalsNameThePlaceAndWhatWasExpected) {
  const std::string range = "expected a number within the range of a double";
  const std::string once = "expected each field once in its object";
  const std::string deep = "expected objects and arrays nested at most 64 deep";
  const struct {
    std::string text;
    std::string error;  // after "s.json: "
  } cases[] = {
      {R"({"config":{"maxTrafficLogSize":1e400}})",
       "/config/maxTrafficLogSize: " + range + " (not 1e400)"},
      {R"([1, -2.5e999])", "/1: " + range + " (not -2.5e999)"},
      {"1e400", "/: " + range + " (not 1e400)"},
      {R"({"a": [{"k": 1}, {"j": [0, 1e309]}]})", "/a/1/j/1: " + range + " (not 1e309)"},
      {R"({"trafficLog": true, "trafficLog": false})", "/trafficLog: " + once},
      {R"({"x": [{"k": 1}, {"k": 1, "k": 2}]})", "/x/1/k: " + once},
      {R"({"x": {"y": {}, "z": {"y": 1, "y": 2}}})", "/x/z/y: " + once},
      {std::string(R"({"service":{}})") + '\0' + "garbage",
       "not valid JSON: a NUL byte at offset 14"},
      {std::string("{\"a\": \"b") + '\0' + "\"}", "not valid JSON: a NUL byte at offset 8"},
      {"[" + Nested(64) + "]", "/" + Repeated("0/", 63) + "0: " + deep},
      {R"({"a": )" + Nested(64) + "}", "/a" + Repeated("/0", 63) + ": " + deep},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ParseError(c.text), "s.json: " + c.error) << c.text.substr(0, 80);
  }
}

std::string ArrayOfZeros(size_t zeros) {
  std::string text = "[";
  text.reserve(zeros * 2 + 2);
  for (size_t i = 0; i < zeros; ++i) text += i ? ",0" : "0";
  return text + "]";
}

TEST(JsonText, AFileHoldsAtMostAMillionValues) {
  // The array counts as one value.
  Json doc;
  std::string error;
  EXPECT_TRUE(ParseJsonText(ArrayOfZeros(kMaxJsonValues - 1), "s.json", &doc, &error)) << error;
  EXPECT_EQ(doc.size(), kMaxJsonValues - 1);
  EXPECT_EQ(ParseError(ArrayOfZeros(kMaxJsonValues)),
            "s.json: /999999: expected at most 1000000 values in the file");
  EXPECT_EQ(ParseError("{\"a\": " + ArrayOfZeros(kMaxJsonValues - 2) + ", \"b\": {}}"),
            "s.json: /b: expected at most 1000000 values in the file");
}

TEST(JsonText, SyntaxErrorsAreReportedAsInvalidJsonWithoutTheLibrarysNumbering) {
  for (const char* text : {"", "{", R"({"a": })", "{} x", "[1,]", "{'a': 1}", "\"\xff\""}) {
    const std::string error = ParseError(text);
    EXPECT_EQ(error.rfind("s.json: not valid JSON: parse error at line 1, column ", 0), 0u)
        << error;
  }
}

TEST(JsonText, AcceptsWhatTheLimitsAllow) {
  const struct {
    std::string text;
    Json expected;
  } cases[] = {
      {Nested(64), Json::parse(Nested(64))},
      {"[1e-400, 1.7976931348623157e308]", Json::array({0.0, 1.7976931348623157e308})},
      {R"({"a": {"k": 1}, "b": {"k": 2}})", Json::parse(R"({"a": {"k": 1}, "b": {"k": 2}})")},
      {"\xEF\xBB\xBF{}", Json::object()},  // a byte-order mark
  };
  for (const auto& c : cases) {
    Json doc;
    std::string error;
    EXPECT_TRUE(ParseJsonText(c.text, "s.json", &doc, &error)) << error;
    EXPECT_EQ(doc, c.expected) << c.text.substr(0, 80);
  }
}

TEST(JsonText, LargeObjectsKeepTheirOrderAndFindEveryField) {
  // Keys in an order that is neither sorted nor hash order, so that only insertion order
  // explains the result.
  std::vector<std::string> keys;
  for (int i = 0; i < 5000; ++i) keys.push_back("k" + std::to_string((i * 7919) % 5000));
  std::string text = "{";
  for (size_t i = 0; i < keys.size(); ++i) {
    text += (i ? "," : "") + ("\"" + keys[i] + "\":" + std::to_string(i));
  }
  text += "}";
  Json doc;
  std::string error;
  ASSERT_TRUE(ParseJsonText(text, "s.json", &doc, &error)) << error;
  ASSERT_EQ(doc.size(), keys.size());
  size_t position = 0;
  for (const auto& item : doc.items()) {
    ASSERT_EQ(item.key(), keys[position]);
    EXPECT_EQ(item.value(), position);
    ++position;
  }
  for (size_t i = 0; i < keys.size(); ++i) {
    auto found = doc.find(keys[i]);
    ASSERT_NE(found, doc.end()) << keys[i];
    EXPECT_EQ(*found, i);
  }
  EXPECT_FALSE(doc.contains("k5000"));

  // Written back, the file has the same fields in the same order.
  Json again;
  ASSERT_TRUE(ParseJsonText(JsonFileText(doc), "again", &again, &error)) << error;
  EXPECT_EQ(again, doc);
  EXPECT_EQ(JsonFileText(again), JsonFileText(doc));
  EXPECT_EQ(JsonFileText(Json::parse(R"({"b": 1, "a": [true]})")),
            "{\n  \"b\": 1,\n  \"a\": [\n    true\n  ]\n}\n");
}

// Every operation of the map checked after each step against a plain list of pairs searched in
// order, across the size at which the index starts and stops being used.
TEST(IndexedOrderedMapTest, BehavesAsAnOrderedListOfUniqueKeys) {
  using Map = IndexedOrderedMap<std::string, int>;
  using Model = std::vector<std::pair<std::string, int>>;
  std::mt19937 random(20261123);
  Map map;
  Model model;
  const auto modelFind = [&](const std::string& key) {
    return std::find_if(model.begin(), model.end(), [&](const auto& p) { return p.first == key; });
  };
  const auto same = [&](const Map& m) {
    if (m.size() != model.size()) return false;
    for (size_t i = 0; i < model.size(); ++i) {
      const auto& field = *(m.begin() + static_cast<long>(i));
      if (field.first != model[i].first || field.second != model[i].second) return false;
      auto found = m.find(model[i].first);
      if (found == m.end() || found->second != model[i].second || m.count(model[i].first) != 1) {
        return false;
      }
    }
    return true;
  };
  for (int step = 0; step < 20000; ++step) {
    // Few enough distinct keys that inserts meet existing ones; the size wanders around the
    // index threshold and well above it.
    const int range = step % 4000 < 2000 ? 12 : 200;
    const std::string key = "key" + std::to_string(random() % range);
    const int value = static_cast<int>(random() % 1000);
    switch (random() % 8) {
      case 0:
      case 1: {
        auto [it, inserted] = map.emplace(key, int{value});
        auto m = modelFind(key);
        ASSERT_EQ(inserted, m == model.end()) << step;
        if (m == model.end()) model.emplace_back(key, value);
        ASSERT_EQ(it->first, key);
        break;
      }
      case 2: {
        map[key] = value;
        auto m = modelFind(key);
        if (m == model.end()) {
          model.emplace_back(key, value);
        } else {
          m->second = value;
        }
        break;
      }
      case 3: {
        auto m = modelFind(key);
        ASSERT_EQ(map.erase(key), m == model.end() ? 0u : 1u) << step;
        if (m != model.end()) model.erase(m);
        break;
      }
      case 4: {
        if (model.empty()) break;
        const size_t first = random() % model.size();
        const size_t last = first + random() % (model.size() - first + 1);
        auto it = map.erase(map.begin() + static_cast<long>(first),
                            map.begin() + static_cast<long>(last));
        ASSERT_EQ(it - map.begin(), static_cast<long>(first));
        model.erase(model.begin() + static_cast<long>(first),
                    model.begin() + static_cast<long>(last));
        break;
      }
      case 5: {
        auto [it, inserted] = map.insert(Map::value_type(key, value));
        auto m = modelFind(key);
        ASSERT_EQ(inserted, m == model.end());
        if (m == model.end()) model.emplace_back(key, value);
        break;
      }
      case 6: {
        const auto m = modelFind(key);
        if (m == model.end()) {
          EXPECT_THROW(map.at(key), std::out_of_range);
          EXPECT_EQ(map.find(key), map.end());
          EXPECT_EQ(map.count(key), 0u);
        } else {
          EXPECT_EQ(map.at(key), m->second);
        }
        break;
      }
      case 7: {
        if (random() % 50 == 0) {
          map.clear();
          model.clear();
        } else {
          Map copy = map;
          ASSERT_TRUE(same(copy)) << step;
          Map moved = std::move(copy);
          map.swap(moved);
        }
        break;
      }
    }
    ASSERT_TRUE(same(map)) << "after step " << step;
  }
}

}  // namespace
}  // namespace nw::sim
