#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/OrderedJSON.h"
#include "CaptureShared/Foundation/PyRepr.h"

namespace halvo {
namespace {

TEST(JSONValue, parsesAndPrintsOnOneSortedLine) {
  const struct { const char* text; const char* printed; } cases[] = {
      {R"( {"b" : 1, "a" : [true, null, {"c": false}]} )", R"({"a":[true,null,{"c":false}],"b":1})"},
      {R"({"a":1,"b":2,"a":3})", R"({"a":3,"b":2})"},
      {"1.0", "1"},
      {"-0.5", "-0.5"},
      {"1e3", "1000"},
      {"1700000000123", "1700000000123"},
      {"-9007199254740992", "-9007199254740992"},
      {"18446744073709551615", "1.8446744073709552e+19"},
      {R"("\u00e9\ud83d\ude00\n\u0000")", "\"é😀\\n\\u0000\""},
      {"{}", "{}"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const auto value = JSONValue::parse(c.text);
    ASSERT_TRUE(value);
    EXPECT_EQ(value->dump(), c.printed);
  }
  EXPECT_EQ(JSONValue::parse(R"({"k":[],"a":{"b":"c"}})")->dumpPretty(), "{\n  \"a\": {\n    \"b\": \"c\"\n  },\n  \"k\": []\n}");
}

TEST(JSONValue, refusesWhatIsNoWholeJSONText) {
  for (const char* text :
       {"", "  ", "{", "nul", "[1,]", "01", R"({"a":1}{"b":2})", R"({"a":1} x)", "\"\xff\"", R"("\ud800")", "{\"a\xc3\":1}", "'a'"})
    EXPECT_FALSE(JSONValue::parse(text)) << text;
  EXPECT_FALSE(JSONValue::parse(std::string(5000, '[')));
}

TEST(JSONValue, hasNoTextForBadBytesAndInfinity) {
  const JSONValue cases[] = {"\xff", JSONObject{{"\xc3", 1}}, JSONValue::Array{"a", "\xed\xa0\x80"},
                             std::numeric_limits<double>::infinity(), std::nan("")};
  for (const auto& value : cases) {
    EXPECT_THROW(value.dump(), JSONEncodingError);
    EXPECT_THROW(value.dumpPretty(), JSONEncodingError);
  }
}

TEST(JSONObject, readsByTypeAndNeverTakesABoolForANumber) {
  const auto value = JSONValue::parse(R"({"flag":true,"n":-1.9,"big":1e19,"text":"7","none":null,"list":[{"x":"y"}]})");
  const auto& object = *value->objectValue();
  EXPECT_EQ(object.integer("flag"), std::nullopt);
  EXPECT_EQ(object.boolean("n"), std::nullopt);
  EXPECT_EQ(object.integer("n"), -1);
  EXPECT_EQ(object.integer("big"), std::nullopt);
  EXPECT_EQ(object.integer("text"), std::nullopt);
  ASSERT_TRUE(value->at({"list", "0", "x"}));
  EXPECT_EQ(*value->at({"list", "0", "x"})->stringValue(), "y");
  EXPECT_EQ(value->at({"list", "1"}), nullptr);
}

JSONValue randomValue(std::mt19937& random, int depth) {
  auto upTo = [&](unsigned n) { return static_cast<int>(random() % n); };
  auto text = [&] {
    static const char* const pieces[] = {"a", "é", "😀", "\"", "\\", "\n", "\x01", "key", "\x7f", "/"};
    std::string out;
    for (int i = upTo(4); i > 0; --i) out += pieces[upTo(10)];
    return out;
  };
  switch (upTo(depth > 0 ? 7u : 5u)) {
    case 0: return nullptr;
    case 1: return upTo(2) == 0;
    case 2: return upTo(1000) - 500;
    case 3: return std::ldexp(static_cast<double>(random()) - 2e9, upTo(80) - 40);
    case 4: return text();
    case 5: {
      JSONValue::Array items;
      for (int i = upTo(4); i > 0; --i) items.push_back(randomValue(random, depth - 1));
      return items;
    }
    default: {
      JSONObject object;
      for (int i = upTo(4); i > 0; --i) object.set(text(), randomValue(random, depth - 1));
      return object;
    }
  }
}

TEST(JSONValue, everyValueComesBackFromItsText) {
  std::mt19937 random(7);
  for (int i = 0; i < 3000; ++i) {
    const auto value = randomValue(random, 4);
    EXPECT_EQ(JSONValue::parse(value.dump()), value);
    EXPECT_EQ(JSONValue::parse(value.dumpPretty()), value);
  }
}

TEST(OrderedJSON, keepsOrderAndEscapesEverythingOutsideASCII) {
  const OrderedJSON value(
      OrderedJSON::Object{{"z", 1.25},
                          {"a\n", OrderedJSON::Array{OrderedJSON(), "x\"\\\b\f\r\t/\x7f", OrderedJSON::numberOrNull(3)}},
                          {"é", "€😀\x1f"},
                          {"bad", "a\xff"},
                          {"none", OrderedJSON::stringOrNull({})},
                          {"e", OrderedJSON::Array{}},
                          {"o", OrderedJSON::Object{}}});
  EXPECT_EQ(value.render(1), R"({
    "z": 1.2,
    "a\n": [
      null,
      "x\"\\\b\f\r\t/\u007f",
      3.0
    ],
    "\u00e9": "\u20ac\ud83d\ude00\u001f",
    "bad": "a\ufffd",
    "none": null,
    "e": [],
    "o": {}
  })");
}

TEST(PyRepr, quotesAsPythonDoes) {
  const struct { std::string text; const char* repr; } cases[] = {
      {"plain", "'plain'"},
      {"it's", R"("it's")"},
      {R"(say "hi")", R"('say "hi"')"},
      {R"(it's "both")", R"('it\'s "both"')"},
      {"a\\b\t\n\r", R"('a\\b\t\n\r')"},
      {std::string("\x00\x1b\x7f", 3), R"('\x00\x1b\x7f')"},
      {"caf\u00e9 \u00a0\u00ad", R"('café \xa0\xad')"},            // a no-break space and a soft hyphen
      {"\u2028\u200b\ue000\ufeff", R"('\u2028\u200b\ue000\ufeff')"},  // separator, format, private use
      {"😀\U000E0001\U000F0000", R"('😀\U000e0001\U000f0000')"},
      {"bad\xff", "'bad\ufffd'"},
  };
  for (const auto& c : cases) EXPECT_EQ(PyRepr::string(c.text), c.repr);
  EXPECT_EQ(PyRepr::windowContentDict("it's", "x"), R"({'ocr_text': "it's", 'description': 'x'})");
}

}  // namespace
}  // namespace halvo
