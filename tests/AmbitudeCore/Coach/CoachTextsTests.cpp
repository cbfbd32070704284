#include <gtest/gtest.h>

#include <map>

#include "AmbitudeCore/Coach/CoachTools.h"
#include "AmbitudeCore/Coach/Layer3Prompt.h"
#include "AmbitudeCore/Coach/Layer3SystemPrompt.h"
#include "CaptureShared/Foundation/Digest.h"

namespace halvo {
namespace {

// The digests were taken of the texts' source, outside this program. What Lark is told is what it was tried with: change it on purpose or
// not at all.
TEST(CoachTexts, standLetterByLetter) {
  using Layer3Prompt::Variant;
  EXPECT_EQ(Digest::sha256Hex(Layer3Prompt::text(Variant::online)), "0db7c3dd32ed012d6d1111b2b8bb2387b69a8d7c6294c146da44402e402e490c");
  EXPECT_EQ(Digest::sha256Hex(Layer3Prompt::text(Variant::local)), "f5aba9feac2601439312c1a664c3664649dee1d8c776995568996d2495b9d786");

  std::map<std::string, std::string> texts;
  for (const auto& tool : CoachTools::all()) {
    texts[tool.name] = tool.description;
    for (const auto& [key, schema] : *tool.parameters.find("properties")->objectValue())
      if (const auto* words = schema.find("description")) texts[tool.name + "." + key] = *words->stringValue();
  }
  const auto* hint = Layer3Tools::all().at(4).parameters.at({"properties", "options", "items", "properties", "hint", "description"});
  ASSERT_TRUE(hint);
  texts["hint"] = *hint->stringValue();
  const struct { const char* name; const char* sha256; } cases[] = {
      {"correct_judgment", "10c9b9df963a6a11ff84184d133b7b050a93f7d7e123a572e2d95860bb75fdd9"},
      {"correct_judgment.app", "f8a30c75681b18260fdb3676fc18d8d2c8f63b5de106bd5168634fc887efcce0"},
      {"correct_judgment.project", "ff7aa7f000edc21b7a78f075fc04ab671d2d049b28d01b4c38dc348422e64009"},
      {"go_quiet", "694356f3f374a1fd77a0a4690ce209224bc7c0489ff9ce3251c33aed021be915"},
      {"go_quiet.minutes", "b6366380b4ac0e1545538056875e8f1879985f5e7c1522984f8d3efa2a525ade"},
      {"go_quiet.rest_of_day", "5d27b5d485f30a0991dcb4d6eac813828402816860a47cb141ccb40053437e1e"},
      {"go_quiet.message", "b9e958f668f1b9db9eaf53fb33a32f30c2077ac294c48191f43a62f4f8fb4693"},
      {"remember_correction", "6bf4d86306b9df6fcac6cc20d4cf8e0a65f98f1bbeedcc657b5d6b1485a0c69b"},
      {"remember_correction.correction", "ca3534a55022aa1c997d3f87e5f885948d4fb8bcab7d8acf64b2f0b8f2532564"},
      {"remember_correction.lasts", "95aa3d89b167bc6db9746c8fa88037e3cc85b677e0d154780ee7704c9c1b935b"},
      {"remember_correction.scope", "dbe24bf6edc9240d35a2178c9a03b7dba0311f261825fc143d4350322f4612c3"},
      {"propose_options", "fa405d5c4a5a4bd08d60ad3ee23775ff166418ae1156fba2d590f21ce42d0ca3"},
      {"propose_options.setting", "b4219a5e6ba85e733a5a25e8790c4ff9a158d0c947ad9d8c411663e5cc4b7973"},
      {"propose_options.title", "816147da8e439100b47e63a3ba60ddf6fd62f7f672799688b8266cb0897941f5"},
      {"propose_options.message", "485e49b98b9a5b2889379bbd03fc2ba452d87f3e5f32e04e6b462f8f19ea8518"},
      {"hint", "dd5fc500deb1a97a25e2969c298e01b5ce087fc7da87d17ae28f965f514b4427"},
      {"do_not_disturb", "78a92a025eccb846ffa17bf58d33387201222f69b76e53450d2c2fda468e51c8"},
      {"do_not_disturb.expectation", "c6ac439c679b5385030217a3cd9011731f2c3dca71d4a42f39a4f8c6e1b11d47"},
      {"open_ui", "5979e0add5114649a181ed9f9d74addd0e14038aff08385191a19cb56d1c6f7b"},
      {"close_ui", "3083dbaa831c00c153ef3deba053462467cdb9bf897c717007f2c209fb1dccf0"},
      {"check_ui_state", "ec714424d00fdec920b46563bade06aff6f928311708b0096a475bfedd820393"}};
  for (const auto& c : cases) EXPECT_EQ(Digest::sha256Hex(texts[c.name]), c.sha256) << c.name;
}

TEST(Layer3SystemPrompt, layers) {
  EXPECT_EQ(Layer3SystemPrompt::build("base", std::nullopt, {}), "base");
  EXPECT_EQ(Layer3SystemPrompt::build("base", "note", {"one", "two"}), "base\n\nnote\n\none\n\ntwo");
}

TEST(CoachTools, families) {
  const std::vector<std::string> five{"write_current_intention", "correct_judgment", "go_quiet", "remember_correction", "propose_options"};
  std::vector<std::string> names;
  for (const auto& tool : Layer3Tools::all()) names.push_back(tool.name);
  EXPECT_EQ(names, five);
  EXPECT_EQ(Layer3Tools::replayableToolNames().size(), 6u) << "the five and write_task";
  for (const auto* older : {"stay_silent", "open_ui", "close_ui", "check_ui_state", "do_not_disturb"}) {
    EXPECT_TRUE(CoachTools::recognizedToolNames().contains(older)) << older;
    EXPECT_TRUE(CoachTools::unreplayableToolNames().contains(older)) << older;
  }
}

}  // namespace
}  // namespace halvo
