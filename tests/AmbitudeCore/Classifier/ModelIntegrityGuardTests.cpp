#include <gtest/gtest.h>

#include "AmbitudeCore/Classifier/ModelIntegrityCheck.h"
#include "AmbitudeCore/Classifier/ModelIntegrityGuard.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "tests/AmbitudeCore/Classifier/ScriptedModel.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

using namespace ModelIntegrityGuard;

TEST(ModelIntegrityGuard, evaluate) {
  const test::TemporaryFolder folder;
  folder.write("w.gguf", "");
  const auto file = folder.path() / "w.gguf", link = folder.path() / "link.gguf";
  fs::create_symlink(file, link);
  const struct { const char* name; std::optional<fs::path> expected; FileCheck check; std::string served; Verdict want; } cases[] = {
      {"the same", file, FileVerified{}, file, Matches{file}},
      {"by a link", file, FileVerified{}, link, Matches{link}},
      {"not standardised", file, FileVerified{}, folder.path() / "x/../w.gguf", Matches{folder.path() / "x/../w.gguf"}},
      {"another", file, FileVerified{}, "/other", ServingOtherFile{file, "/other"}},
      {"relative to who knows where", file, FileVerified{}, "w.gguf", ServingOtherFile{file, "w.gguf"}},
      {"nothing expected", {}, FileVerified{}, "/other", UnknownModel{"/other"}},
      {"missing", file, FileMissing{}, file, ModelAbsent{}},
      {"unknown", file, FileUnknownModel{}, file, UnknownModel{file}},
      {"changed", file, FileStale{"w.gguf"}, file, FileChanged{"w.gguf"}}};
  for (const auto& c : cases) EXPECT_EQ(evaluate(c.expected, c.check, c.served), c.want) << c.name;
}

TEST(ModelIntegrityGuard, tickDecision) {
  const struct { Verdict verdict; std::string refusal; std::optional<Kind> kind; std::string message; } cases[] = {
      {Matches{"/w"}, "", {}, ""},
      {UnknownModel{"/w"}, "", {}, ""},
      {ServingOtherFile{"/w", "/o"},
       "REFUSING TO JUDGE (#986): the local server is serving /o, not the verified /w for m. Something else may be listening on the model "
       "port, or "
       "the server wasn't restarted after a model change. Not sending a screenshot to it.",
       Kind::modelReplaced,
       "Paused: the local model server isn't running the m files Halvo downloaded. Download the model again to resume."},
      {FileChanged{"w"},
       "REFUSING TO JUDGE (#986): m's files changed on disk since they were verified (w). Not sending a screenshot to it.",
       Kind::modelReplaced, "Paused: m's files changed since they were checked. Download the model again to resume."},
      {ModelAbsent{},
       "REFUSING TO JUDGE (#986): m isn't downloaded, so there is nothing verified to judge with. Not sending a screenshot.",
       {},
       ""},
      {CannotVerify{"why"}, "REFUSING TO JUDGE (#986): it can't be told which files are served for m (why). Not sending a screenshot.",
       Kind::cannotVerify, "Paused: the local model server can't be asked which model it is running."}};
  const test::TemporaryFolder folder;
  for (const auto& c : cases) {
    const auto decision = tickDecision("m", c.verdict, 1'795'569'530'581);
    EXPECT_EQ(decision.refusal.value_or(""), c.refusal);
    EXPECT_EQ(decision.warnings.size(), std::holds_alternative<UnknownModel>(c.verdict) ? 1u : 0u);
    ASSERT_EQ(decision.note.has_value(), c.kind.has_value());
    if (!c.kind) continue;
    EXPECT_EQ(decision.note, (RefusalNote{.kind = *c.kind, .model = "m", .message = c.message, .atMs = 1'795'569'530'581}));
    writeRefusalNote(*decision.note, folder.path() / "note");
    EXPECT_EQ(readRefusalNote(folder.path() / "note"), decision.note);
  }
  for (const char* damage : {"", "[]", R"({"kind":"odd","model":"m","message":"","at":"2026-11-25T01:18:50Z"})"})
    EXPECT_EQ(decodeRefusalNote(damage), std::nullopt) << damage;
}

TEST(ModelIntegrityGuard, servedPath) {
  const auto recorded = readFile(HALVO_TEST_DATA "/wire/010_props.response.http");
  EXPECT_TRUE(servedPathIn(recorded.substr(recorded.find("\r\n\r\n") + 4)).ends_with(".gguf"));
  EXPECT_EQ(servedPathIn(R"({"model_path":"/top","default_generation_settings":{"model_path":"/in"}})"), "/top");
  EXPECT_EQ(servedPathIn(R"({"default_generation_settings":{"model_path":"/in"}})"), "/in");
  test::ScriptedModel server;
  for (const char* body : {"{}", "", "[1]", R"({"model_path":7})"}) {
    server.answer = [&](const std::string&) { return body; };
    const auto verdict = verify("/w", FileVerified{}, "http://127.0.0.1:9/", server, {});
    ASSERT_TRUE(std::holds_alternative<CannotVerify>(verdict)) << body;
    EXPECT_TRUE(std::get<CannotVerify>(verdict).why.starts_with("llama-server /props carried no model_path:"));
  }
  EXPECT_EQ(server.requests.back().url, "http://127.0.0.1:9/props");
  server.status = 503;
  EXPECT_EQ(verify("/w", FileVerified{}, "http://127.0.0.1:9", server, {}), Verdict(CannotVerify{"llama-server /props answered 503"}));
  const auto asked = server.requests.size();
  EXPECT_EQ(verify("/w", FileMissing{}, "http://127.0.0.1:9", server, {}), Verdict(ModelAbsent{}));
  EXPECT_EQ(server.requests.size(), asked) << "no answer could make it right";
}

}  // namespace
}  // namespace halvo
