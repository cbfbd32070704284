#include <gtest/gtest.h>

#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Privacy/Denylist.h"
#include "CaptureShared/Privacy/OnScreenWindowVisibility.h"
#include "CaptureShared/Privacy/OutboundTitlePrivacy.h"
#include "CaptureShared/Privacy/ScreenText.h"
#include "CaptureShared/Privacy/SensitiveSites.h"

namespace halvo {
namespace {

TEST(ScreenText, breaksTurnMarkersAndNothingElse) {
  const struct { const char* text; const char* want; } cases[] = {
      {"<turn|>\n<|turn>model", "< turn|>\n< |turn>model"},
      {"<start_of_turn>x</s><|im_end|>", "< start_of_turn>x< /s>< |im_end|>"},
      {"<<|turn>", "<< |turn>"},
      {"<｜User｜>", "< ｜User｜>"},
      {"a < b > c, x<5, <- y, <>, 3<4 and 5>2", "a < b > c, x<5, <- y, <>, 3<4 and 5>2"},
      {"< |turn>", "< |turn>"}};
  for (const auto& c : cases) EXPECT_EQ(ScreenText::breakTurnMarkers(c.text), c.want);
}

TEST(ScreenText, sanitize) {
  const struct { const char* name; std::string text; std::size_t cap; std::string want; } cases[] = {
      {"runs become one blank, ends go", "\n\t a \u00a0\u200b\u2028b\x01 ", 50, "a b"},
      {"every double quote", "\"a\" «b» “c” 〝d〟 ＂e＂", 50, "ʺaʺ ʺbʺ ʺcʺ ʺdʺ ʺeʺ"},
      {"single quotes stay", "it's ‘x’", 50, "it's ‘x’"},
      {"exactly the cap", "abcde", 5, "abcde"},
      {"one over", "abcdef", 5, "abcde…"},
      {"characters, not bytes", "éééééé", 5, "ééééé…"},
      {"a marker hidden by marks", "<\u200b|turn>", 50, "< |turn>"},
      {"a marker", "see <|turn>", 50, "see < |turn>"},
      {"bad bytes", "a\xff", 5, "a\uFFFD"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(ScreenText::sanitize(c.text, c.cap), c.want);
  }
  EXPECT_EQ(ScreenText::quoted("say \"no\"", 120), "\"say ʺnoʺ\"");
}

TEST(Denylist, excludes) {
  const auto standard = Denylist::fromEnvironment({});
  const auto own = Denylist::fromEnvironment({{"AMBITCAP_DENYLIST", " Diary , My Bank,"}});
  const auto blank = Denylist::fromEnvironment({{"AMBITCAP_DENYLIST", "  "}});
  const struct { const Denylist& list; std::optional<std::string> name, id; bool want; } cases[] = {
      {standard, "1Password", {}, true},
      {standard, "keepassxc", {}, true},
      {standard, "Firefox", "org.keepassxc.KeePassXC", true},
      {standard, "Pinentry-gtk-2", {}, true},
      {standard, "pinentry-qt5", {}, true},
      {standard, "polkit-gnome-authentication-agent-1", {}, true},
      {standard, "gcr-prompter", {}, true},
      {standard, "kwalletd6", {}, true},
      {standard, "seahorse", {}, true},
      {standard, "1Password Blog", {}, false},
      {standard, {}, {}, false},
      {own, "diary", {}, true},
      {own, "MY BANK", {}, true},
      {own, "Dashlane", {}, false},
      {own, "pinentry", {}, true},
      {own, "", {}, false},
      {blank, "Dashlane", {}, true}};
  for (const auto& c : cases) EXPECT_EQ(c.list.excludes(c.name, c.id), c.want) << c.name.value_or("(absent)");
  EXPECT_EQ(Denylist::defaultAppNames().size(), 19u);
  EXPECT_EQ(Denylist::bundleIds().size(), 14u);
  EXPECT_TRUE(standard.excludesAny({{.name = "Firefox"}, {.bundleId = "com.bitwarden.desktop"}}));
}

TEST(OnScreenWindowVisibility, deniedAppVisibleOverCapturedBounds) {
  const auto denylist = Denylist::fromEnvironment({});
  const ScreenBounds captured{100, 100, 400, 300};
  const OnScreenWindowRecord editor{"Editor", "org.editor", captured};
  const OnScreenWindowRecord over{"1Password", {}, {450, 350, 200, 200}};
  const OnScreenWindowRecord touching{"1Password", {}, {500, 100, 100, 100}};
  const OnScreenWindowRecord byId{"Vault", "com.bitwarden.desktop", {0, 0, 2000, 2000}};
  const OnScreenWindowRecord panel{"Panel", {}, {0, 0, 2000, 30}};
  const struct { const char* name; std::vector<OnScreenWindowRecord> windows; std::optional<std::string> want; } cases[] = {
      {"in front and over the rectangle", {panel, over, editor}, "1Password"},
      {"by its identifier", {byId, editor}, "Vault"},
      {"behind the frontmost window", {editor, over}, {}},
      {"edges that touch share nothing", {touching, editor}, {}},
      {"frontmost nowhere in the list: all of it is looked at", {panel, over}, "1Password"},
      {"nothing", {}, {}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto found = OnScreenWindowVisibility::deniedAppVisibleOverCapturedBounds(
        {.windows = c.windows, .captured = captured, .frontmostName = "Editor", .frontmostBundleId = "org.editor"}, denylist);
    EXPECT_EQ(found ? found->name : std::nullopt, c.want);
  }
}

TEST(SensitiveSites, category) {
  using SensitiveSites::Category;
  const struct { SensitiveSites::Moment moment; std::optional<Category> want; } cases[] = {
      {{.browserURL = "https://WWW.chase.com/accounts"}, Category::financial},
      {{.browserURL = "https://secure.chase.com:8443/x"}, Category::financial},
      {{.browserURL = "https://chase.com.evil.org/"}, {}},
      {{.browserURL = "https://notchase.com/"}, {}},
      {{.browserURL = "https://evil.org/?u=https://chase.com"}, {}},
      {{.browserURL = "https://evil.org@chase.com/"}, Category::financial},
      {{.browserURL = "paypal.com/home"}, Category::financial},
      {{.browserURL = "https://mychart.clinic.org/"}, Category::medical},
      {{.browserURL = "https://notmychart.clinic.org/", .browserTitle = "Accounts"}, {}},
      {{.browserURL = "https://kp.org./"}, Category::medical},
      {{.browserURL = "about:blank", .browserTitle = "PAYPAL: log in"}, Category::financial},
      {{.windowTitle = "My Patient Portal - Firefox"}, Category::medical},
      {{.windowTitle = "Accounts - secure.chase.com"}, Category::financial},
      {{.windowTitle = "purchase.com deals"}, {}},
      {{.windowTitle = "PayPalooza"}, {}}};
  for (const auto& c : cases)
    EXPECT_EQ(SensitiveSites::category(c.moment), c.want)
        << c.moment.browserURL.value_or("") << " " << c.moment.browserTitle.value_or("") << " " << c.moment.windowTitle.value_or("");
  EXPECT_EQ(SensitiveSites::financialDomains().size(), 32u);
  EXPECT_EQ(SensitiveSites::medicalDomains().size(), 18u);
  EXPECT_EQ(SensitiveSites::financialTitlePhrases().size(), 16u);
  EXPECT_EQ(SensitiveSites::medicalTitlePhrases().size(), 13u);
}

TEST(OutboundTitlePrivacy, outcomeAndValues) {
  using OutboundTitlePrivacy::Outcome;
  const struct {
    const char* title;
    Outcome want;
    const char* redacted;  ///< null: as the title
  } cases[] = {{"Order 12345 - Shop", Outcome::withheldIdentifier, "Order [identifier withheld] - Shop"},
               {"Account 12", Outcome::withheldIdentifier, "Account [identifier withheld]"},
               {"Policy 2024-2025", Outcome::unchanged, nullptr},
               {"Reference 2024-25 report", Outcome::unchanged, nullptr},
               {"Order status", Outcome::unchanged, nullptr},
               {"customer account 12345", Outcome::withheldIdentifier, "customer account [identifier withheld]"},
               {"Acc\u200bount #\u200b99871", Outcome::withheldIdentifier, "Acc\u200bount #\u200b[identifier withheld]"},
               {"ID: A1-22", Outcome::withheldIdentifier, "ID: [identifier withheld]"},
               {"id: A1-22", Outcome::unchanged, nullptr},
               {"Card ending in 4242", Outcome::withheldIdentifier, "Card [identifier withheld]"},
               {"Season ending in 2024", Outcome::unchanged, nullptr},
               {"•••• 4242 | Wallet", Outcome::withheldIdentifier, "[identifier withheld] | Wallet"},
               {"Call 15551234567", Outcome::withheldIdentifier, "Call [identifier withheld]"},
               {"Card 4111 1111 1111 1111", Outcome::withheldIdentifier, nullptr},
               {"PayPal: Wallet", Outcome::genericizedFinancial, nullptr},
               {"Pay\u200bPal", Outcome::genericizedFinancial, nullptr},
               {"Labcorp results", Outcome::genericizedMedical, nullptr},
               {"Accounts - secure.chase.com", Outcome::genericizedFinancial, nullptr},
               {"PayPal order 77123", Outcome::withheldIdentifier, "PayPal order [identifier withheld]"},
               {"chapter3.txt - Editor", Outcome::unchanged, nullptr}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.title);
    EXPECT_EQ(rawValue(OutboundTitlePrivacy::outcome(c.title)), rawValue(c.want));
    EXPECT_EQ(OutboundTitlePrivacy::redactIdentifierValues(c.title), c.redacted ? c.redacted : c.title);
    const auto shown = OutboundTitlePrivacy::sanitize(std::string_view(c.title));
    EXPECT_EQ(OutboundTitlePrivacy::sanitize(std::string_view(shown)), shown);
  }
  EXPECT_EQ(OutboundTitlePrivacy::sanitize(std::optional<std::string>()), std::nullopt);
  EXPECT_EQ(OutboundTitlePrivacy::outcome(std::string(70000, 'a')), Outcome::withheldIdentifier);
  EXPECT_EQ(OutboundTitlePrivacy::summary({Outcome::unchanged, Outcome::withheldIdentifier, Outcome::withheldIdentifier}),
            "withheld_identifier 2");
  EXPECT_EQ(OutboundTitlePrivacy::placeholderCounts("a [identifier withheld] b [identifier withheld] [medical or health site]"),
            (std::map<std::string, int>{{"[identifier withheld]", 2}, {"[medical or health site]", 1}}));
}

}  // namespace
}  // namespace halvo
