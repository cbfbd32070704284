#include <gtest/gtest.h>

#include "CaptureShared/DataRoot/AgentConfig.h"
#include "CaptureShared/DataRoot/ConfigSourcedKeys.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "tests/CaptureShared/DataRoot/Home.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using Keys = std::vector<std::string>;

TEST(AgentConfig, parse) {
  const struct { const char* name; const char* text; AgentConfig::ParseResult want; } cases[] = {
      {"empty", "", {}},
      {"bad bytes", "{\"a\":\"\xff\"}", {.parseError = "config is not valid UTF-8"}},
      {"trailing comma", R"({"env":{},})", {.parseError = "config is not valid JSON"}},
      {"a list", "[]", {.parseError = "config must be a JSON object"}},
      {"env is a list", R"({"env":[]})", {.parseError = "\"env\" must be an object of string values"}},
      {"env is null", R"({"env":null})", {.parseError = "\"env\" must be an object of string values"}},
      {"numbers, foreign and environment-only keys are unknown",
       R"({"env":{"PATH":"/evil","AMBITCAP_LAYER3":1,"AMBITCAP_MODEL":"m","AMBITCAP_DATA_ROOT":"/x","AMBITCAP_GATE_LOG":""}})",
       {.settings = {{"AMBITCAP_GATE_LOG", ""}, {"AMBITCAP_MODEL", "m"}},
        .unknownKeys = {"AMBITCAP_DATA_ROOT", "AMBITCAP_LAYER3", "PATH"}}},
  };
  for (const auto& c : cases) EXPECT_EQ(AgentConfig::parse(c.text), c.want) << c.name;
}

TEST(AgentConfig, theEnvironmentWinsUnlessItIsEmpty) {
  test::Home home;
  home.set("AMBITCAP_MODEL", "mine");
  home.set("AMBITCAP_LAYER3", "");
  home.set("AMBITCAP_USER_NAME", {});
  home.writeConfig(
      R"({"env":{"AMBITCAP_USER_NAME":"Ada","AMBITCAP_MODEL":"theirs","AMBITCAP_LAYER3":"1","AMBITCAP_DATA_ROOT":"/elsewhere"}})");
  const auto applied = AgentConfig::bootstrapProcessEnvironment();
  EXPECT_EQ(applied, (Keys{"AMBITCAP_LAYER3", "AMBITCAP_USER_NAME"}));
  EXPECT_STREQ(std::getenv("AMBITCAP_MODEL"), "mine");
  EXPECT_STREQ(std::getenv("AMBITCAP_LAYER3"), "1");
  EXPECT_EQ(std::getenv("AMBITCAP_DATA_ROOT"), nullptr);

  const std::set<std::string, std::less<>> sourced(applied.begin(), applied.end());
  EXPECT_FALSE(ConfigSourcedKeys::isPinnedFromOutside("AMBITCAP_LAYER3", processEnvironment(), sourced));
  EXPECT_TRUE(ConfigSourcedKeys::isPinnedFromOutside("AMBITCAP_MODEL", processEnvironment(), sourced));
  EXPECT_EQ(AgentConfig::missingKeys({"C", "B", "A"}, AgentConfig::Settings{{"A", "1"}, {"B", ""}}, {{"C", ""}}), (Keys{"C", "B"}));
}

TEST(AgentConfig, aWriterKeepsWhatItDoesNotKnowAndStaysPrivate) {
  test::Home home;
  home.writeConfig(R"({"dataRoot":"/x","mine":{"deep":[1,2.5,true]},"env":{"AMBITCAP_MODEL":"m","OTHER":7}})");
  fs::permissions(home.config(), fs::perms::owner_all | fs::perms::group_all | fs::perms::others_all);
  AgentConfig::setEnvValue("  sk-key-123  ", "OPENROUTER_API_KEY", home.config());
  AgentConfig::setEnvValue(" \n", "AMBITCAP_MODEL", home.config());
  EXPECT_EQ(readFile(home.config()), R"({
  "dataRoot": "/x",
  "env": {
    "OPENROUTER_API_KEY": "sk-key-123",
    "OTHER": 7
  },
  "mine": {
    "deep": [
      1,
      2.5,
      true
    ]
  }
}
)");
  EXPECT_EQ(fs::status(home.config()).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST(AgentConfig, aWriterRefusesAndChangesNothing) {
  test::Home home;
  auto refusal = [&](const std::map<std::string, std::optional<std::string>>& values) -> std::string {
    try {
      AgentConfig::setEnvSettings(values, home.config());
      return "saved";
    } catch (const AgentConfig::ConfigWriteError& error) {
      return error.what();
    }
  };
  for (const char* text : {R"({"env":{},})", "[1]", R"({"env":[]})", "{\"a\":\"\xff\"}"}) {
    home.writeConfig(text);
    const auto said = refusal({{"AMBITCAP_MODEL", "m"}});
    EXPECT_EQ(said, home.config().string() + " is malformed (" + *AgentConfig::parse(text).parseError +
                        ") — refusing to save, so nothing already in it is lost. Fix it by hand, or delete it and reconfigure.");
    EXPECT_THROW(AgentConfig::seedDefaultEnvIfAbsent(home.config(), 0, [](auto) { return std::nullopt; }), AgentConfig::ConfigWriteError);
    EXPECT_EQ(readFile(home.config()), text);
  }
  home.writeConfig("{}");
  EXPECT_EQ(refusal({{"AMBITCAP_DATA_ROOT", "/x"}}),
            "AMBITCAP_DATA_ROOT isn't a setting this file can apply, so writing it would look configured and do nothing.");
  EXPECT_EQ(refusal({{"B", "1"}, {"AMBITCAP_MODEL", "m"}, {"A", "1"}}),
            "A, B aren't settings this file can apply, so writing them would look configured and do nothing.");
  EXPECT_EQ(readFile(home.config()), "{}");
}

TEST(AgentConfig, seedingAddsOnlyWhatIsMissing) {
  test::Home home;
  home.writeConfig(R"({"env":{"AMBITCAP_LAYER3":"0"}})");
  AgentConfig::seedDefaultEnvIfAbsent(home.config(), 16, [](std::uint64_t bytes) { return std::optional("for " + std::to_string(bytes)); });
  auto settings = AgentConfig::load(home.config()).settings;
  EXPECT_EQ(settings.size(), 7u);
  EXPECT_EQ(settings["AMBITCAP_LAYER3"], "0");
  EXPECT_EQ(settings["AMBITCHECK_MODEL"], "for 16");

  const auto before = FileIdentity::of(home.config());
  AgentConfig::seedDefaultEnvIfAbsent(home.config(), 0, [](auto) { return std::nullopt; });
  EXPECT_EQ(FileIdentity::of(home.config()), before);

  const auto fresh = home.path() / "fresh.json";
  EXPECT_TRUE(AgentConfig::writeExampleIfAbsent(fresh));
  EXPECT_FALSE(AgentConfig::writeExampleIfAbsent(fresh));
  EXPECT_EQ(AgentConfig::load(fresh).settings.at("AMBITCHECK_MODEL"), "gemma4:12b-it-qat");
  EXPECT_EQ(JSONValue::parse(readFile(fresh))->find("_readme")->arrayValue()->size(), 11u);
}

TEST(AgentConfig, showsAStoredKeyByItsEnd) {
  const struct { std::optional<std::string> secret, shown; } cases[] = {
      {{}, {}}, {"", {}}, {"1234567", "…"}, {"12345678", "…5678"}, {"ééééöäüß", "…öäüß"}};
  for (const auto& c : cases) EXPECT_EQ(AgentConfig::redactedSuffix(c.secret), c.shown);
}

}  // namespace
}  // namespace halvo
