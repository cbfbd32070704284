#include <gtest/gtest.h>

#include <chrono>
#include <random>

#include "CaptureShared/Foundation/Regex.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/Translation.h"

namespace halvo {
namespace {

constexpr const char* family = "👨‍👩‍👧‍👦";  // seven code points, one character

TEST(Text, countsAndCutsWhatPeopleSee) {
  const struct { std::string text; std::size_t count; std::string firstTwo; } cases[] = {
      {"", 0, ""},
      {"abc", 3, "ab"},
      {"a\r\nb", 3, "a\r\n"},
      {"e\u0301e\u0301e", 3, "e\u0301e\u0301"},
      {"abc\u0301", 3, "ab"},
      {"ab\u0301c", 3, "ab\u0301"},
      {std::string("x") + family + "y", 3, std::string("x") + family},
      {"🇩🇪🇫🇷🇮🇹", 3, "🇩🇪🇫🇷"},
      {"👍🏽ok", 3, "👍🏽o"},
      {"\u1112\u1161\u11ab글!", 3, "\u1112\u1161\u11ab글"},  // a syllable of three letters
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(Text::count(c.text), c.count);
    EXPECT_EQ(Text::prefix(c.text, 2), c.firstTwo);
    EXPECT_EQ(Text::capped(c.text, 3), c.text);
    EXPECT_EQ(Text::capped(c.text, 2), c.count > 2 ? c.firstTwo + "…" : c.text);
    EXPECT_EQ(Text::prefix(c.text, 0), "");
  }
}

TEST(Text, trimsUnicodeWhiteSpaceAndNothingElse) {
  const struct { const char* text; const char* trimmed; } cases[] = {
      {" \t\r\n a b \n", "a b"}, {"\u00a0\u2003\u3000x\u2028\u0085", "x"}, {"\u200bx\u200b", "\u200bx\u200b"},
      {"\u3000", ""},            {"\xff x \xff", "\xff x \xff"},           {"x \xa0", "x \xa0"},
  };
  for (const auto& c : cases) EXPECT_EQ(Text::trim(c.text), c.trimmed) << c.text;
  EXPECT_EQ(Text::trimBlanksAndTabs(" \t\na\n\t "), "\na\n");
}

TEST(Text, comparesWithoutCase) {
  EXPECT_TRUE(Text::equalsIgnoringCase("ÉCOLE ΣΑΣ", "école σας"));
  EXPECT_TRUE(Text::equalsIgnoringCase("\u212a", "k"));  // the Kelvin sign
  EXPECT_FALSE(Text::equalsIgnoringCase("straße", "STRASSE"));
  EXPECT_TRUE(Text::containsIgnoringCase("Mein ÜBERBLICK", "überb"));
}

TEST(Text, scrubbedBytesAreAlwaysUTF8AndGoodTextStays) {
  EXPECT_EQ(Text::scrubbed("a\xff" "b\xc3"), "a\ufffd" "b\ufffd");
  EXPECT_FALSE(Text::isValidUTF8("\xed\xa0\x80"));
  EXPECT_FALSE(Text::isValidUTF8("\xc0\xaf"));
  std::mt19937 random(11);
  for (int i = 0; i < 2000; ++i) {
    std::string bytes;
    for (auto size = random() % 12; size > 0; --size) bytes += static_cast<char>(random() % 3 ? 0xA0 + random() % 0x60 : random());
    const auto text = Text::scrubbed(bytes);
    EXPECT_TRUE(Text::isValidUTF8(text));
    EXPECT_EQ(Text::scrubbed(text), text);
    EXPECT_EQ(Text::isValidUTF8(bytes), text == bytes);
    // No cut may walk past the end or lose a byte, whatever the bytes are.
    EXPECT_EQ(Text::prefix(bytes, bytes.size()), bytes);
    EXPECT_TRUE(std::string_view(bytes).starts_with(Text::prefix(bytes, 2)));
  }
}

TEST(Regex, givesUpOnACatastrophicTextInsteadOfHanging) {
  const Regex pattern("^(a|a|aa)+$");
  EXPECT_TRUE(pattern.matches("aaaa"));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_THROW(pattern.find(std::string(60, 'a') + "b"), RegexLimitExceeded);
  EXPECT_THROW(pattern.replaceAll(std::string(64'000, 'a') + "b", ""), RegexLimitExceeded);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

TEST(Regex, findsAndReplacesInCodePoints) {
  const Regex word(R"((\w+)(?:-(\d+))?)", Regex::Flag::caseless);
  const std::string subject = "· Größe-12";
  const auto found = word.find(subject);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->text(subject, 1), "Größe");
  EXPECT_EQ(found->text(subject, 2), "12");
  EXPECT_EQ(word.find("é")->text("é", 2), std::nullopt);
  EXPECT_EQ(word.find(subject, subject.size() + 1), std::nullopt);

  EXPECT_EQ(Regex("x*").replaceAll("éx", "-"), "-é--");
  EXPECT_EQ(Regex("").replaceAll("é", "-"), "-é-");
  EXPECT_EQ(Regex("b").replaceAll("a\xff" "b\xc3", "c"), "a\xff" "c\xc3");
  EXPECT_FALSE(Regex("^.$").matches("\xff"));
  EXPECT_THROW(Regex("(a"), std::invalid_argument);
}

TEST(Translation, takesTheTranslationUnlessItDoesNotFitTheArguments) {
  EXPECT_EQ(tr("{} of {}", 3, "four"), "3 of four");
  setTranslator([](const std::string& source) -> std::string {
    if (source == "{} of {}") return "{1}, davon {0}";
    return source == "{} left" ? "{} von {}" : "«" + source + "»";
  });
  EXPECT_EQ(tr("Quiet"), "«Quiet»");
  EXPECT_EQ(tr(""), "");
  EXPECT_EQ(tr("{} of {}", 3, "four"), "four, davon 3");
  EXPECT_EQ(tr("{} left", 3), "3 left");
  setTranslator(nullptr);
  EXPECT_EQ(tr("Quiet"), "Quiet");
}

}  // namespace
}  // namespace halvo
