#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>

#include "AmbitudeCore/Backends/LocalInferenceEndpoint.h"
#include "AmbitudeCore/Classifier/ModelIntegrityCheck.h"
#include "agents/LocalModel/LocalModelStart.h"
#include "tests/CaptureShared/Provisioning/SmallModel.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Eventually.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using State = LlamaServerStatus::State;

class LocalModelTest : public testing::Test {
 protected:
  std::optional<LlamaServerStatus> status() const { return LlamaServerStatus::read(LlamaServerStatus::url(environment)); }
  void haveServer(const std::string& script) {
    folder.write("bin/llama-server", "#!/bin/sh\n" + script + "\n");
    fs::permissions(folder.path() / "bin/llama-server", fs::perms::owner_all);
  }
  /// Starts a program of ours; its words go to "out".
  test::ChildProcess start(const std::string& program, const std::vector<std::string>& words = {}) {
    fs::remove(folder.path() / "out");
    return test::ChildProcess::logged(std::string(HALVO_BIN) + "/" + program, words, environment, folder.path() / "out");
  }
  std::string said(const std::vector<std::string>& words, int want = 0) {
    EXPECT_EQ(start("halvo", words).wait(30), want);
    return readFile(folder.path() / "out");
  }
  /// The files of a real model by name, size and stamp, without a byte in them.
  void seemInstalled(const LocalModelStore::Manifest& manifest) const {
    fs::create_directories(models);
    for (const auto* artifact : manifest.artifacts()) {
      folder.write("Library/Application Support/AmbitCapture/models/" + artifact->fileName, "");
      fs::resize_file(models / artifact->fileName, static_cast<std::uintmax_t>(artifact->bytes));
      LocalModelStore::recordVerified(*artifact, models);
    }
  }

  test::TemporaryFolder folder;
  Environment environment{{"HOME", folder.path().string()},
                          {"PATH", (folder.path() / "bin").string() + ":/usr/bin:/bin"},
                          {"LLAMA_ARG_HOST", "0.0.0.0"},
                          {"AMBITCAP_DATA_ROOT", folder.path().string()}};
  fs::path models = LocalModelStore::modelsDirectory(environment), socket = LocalInferenceEndpoint::socketPath(environment);
};

TEST_F(LocalModelTest, everyReasonNotToStartIsToldAndNothingTakesTheModelsPlace) {
  test::SmallModel small;
  std::optional<LocalModelStore::Manifest> manifest = small.manifest();
  std::vector<std::string> log;
  const auto prepare = [&] {
    return LocalModelStart({.environment = environment,
                            .model = "small",
                            .manifest = manifest,
                            .modelsDirectory = models,
                            .statusFile = LlamaServerStatus::url(environment),
                            .baseURL = LocalInferenceEndpoint::defaultBaseURL(environment),
                            .physicalMemoryBytes = std::uint64_t{64} << 30,
                            .nowMs = [] { return std::int64_t{42}; },
                            .log = [&](const std::string& line) { log.push_back(line); }})
        .prepare({});
  };
  const auto write = [&](const char* name, const std::string& bytes) {
    folder.write("Library/Application Support/AmbitCapture/models/" + std::string(name), bytes);
  };
  const std::tuple<State, const char*, std::function<void()>> cases[] = {
      {State::unknownModel, "no manifest for it", [&] { manifest.reset(); }},
      {State::modelMissing, "missing: weights, projector", [&] { manifest = small.manifest(); }},
      {State::runtimeMissing, "no llama-server in PATH",
       [&] { write("weights", small.weights), write("projector", test::noise(20'000, 5)); }},
      {State::checksumMismatch, "projector has the checksum ", [&] { haveServer("exit 9"); }},
      {State::failed, "llama.sock exists and is not a socket; not removing it",
       [&] { write("projector", small.projector), folder.write("Library/Application Support/AmbitCapture/llama/llama.sock", "mine"); }}};
  for (const auto& [state, message, begin] : cases) {
    begin();
    EXPECT_FALSE(prepare());
    ASSERT_TRUE(status());
    EXPECT_EQ(rawValue(status()->state), rawValue(state));
    EXPECT_NE(status()->message.find(message), std::string::npos) << status()->message;
    EXPECT_NE(log.back().find(status()->healthMessage()), std::string::npos) << log.back();
  }
  fs::remove(socket);
  const auto launch = prepare();
  ASSERT_TRUE(launch);
  EXPECT_EQ(status(),
            (LlamaServerStatus{
                .state = State::starting, .model = "small", .message = (folder.path() / "bin/llama-server").string(), .atMs = 42}));
  EXPECT_EQ(launch->weights, models / "weights");
  EXPECT_EQ(launch->alias, "small");
  EXPECT_EQ(launch->contextLength, 32768);
  EXPECT_EQ(fs::status(socket.parent_path()).permissions(), fs::perms::owner_all);
}

TEST_F(LocalModelTest, becomesTheServerAndOthersSeeIt) {
  const auto manifest = *LocalModelStore::manifest("gemma4:12b-it-qat");
  seemInstalled(manifest);
  EXPECT_NE(said({"models"}).find("* gemma4:12b-it-qat    7.15 GB"), std::string::npos);
  EXPECT_NE(readFile(folder.path() / "out").find("ready"), std::string::npos);
  haveServer("printf '%s\\n' \"$@\" > " + (folder.path() / "words").string() + "; env > " + (folder.path() / "environment").string() +
             "; exec " HALVO_BIN "/PracticeModel --socket \"$8\"");
  EXPECT_NE(said({"status"}).find("\nmodel:     the local model isn't running\n"), std::string::npos) << readFile(folder.path() / "out");
  auto server = start("LocalModel");
  ASSERT_TRUE(test::eventually([&] { return fs::exists(socket); }, 20)) << readFile(folder.path() / "out");
  const auto words = readFile(folder.path() / "words");
  EXPECT_TRUE(words.starts_with("--model\n" + (models / manifest.weights.fileName).string() + "\n--mmproj\n")) << words;
  EXPECT_NE(words.find("\n--host\n" + socket.string() + "\n--port\n0\n"), std::string::npos);
  EXPECT_EQ(readFile(folder.path() / "environment").find("LLAMA_"), std::string::npos);
  ASSERT_TRUE(test::eventually([&] { return said({"status"}).find("\nmodel:     serving practice-model\n") != std::string::npos; }));
  const auto again = start("LocalModel").wait(20);
  EXPECT_NE(again, 0);
  EXPECT_EQ(status()->state, State::failed);
  EXPECT_NE(status()->message.find("another server is already listening"), std::string::npos);
  ModelIntegrityGuard::writeRefusalNote({.model = "gemma4:12b-it-qat", .message = "Paused: why", .atMs = 1},
                                        ModelIntegrityCheck::Subject::of("", environment).refusalNote);
  EXPECT_NE(said({"status"}).find("serving practice-model\n           Paused: why\n"), std::string::npos);
  server.signal(SIGTERM);
  EXPECT_TRUE(server.wait(5)) << "what this program blocks must not stay blocked in the server";
  fs::remove_all(models);
  EXPECT_NE(start("LocalModel").wait(20), 0);
  EXPECT_NE(said({"status"}).find("model:     gemma4:12b-it-qat hasn't been downloaded\n"), std::string::npos);
}

TEST_F(LocalModelTest, modelsComeAndGoOnTheCommandLine) {
  const auto manifest = *LocalModelStore::manifest("gemma4:e2b-it-qat");
  const std::string name = manifest.model, bytes = test::noise(3 << 20, 4);
  EXPECT_NE(said({"models", "install", name}, 1).find("no download server is configured: set AMBITCAP_MODEL_HOST"), std::string::npos);
  EXPECT_NE(said({"models", "install", "my-own"}, 1).find("there's no download for my-own"), std::string::npos);
  EXPECT_EQ(said({"models", "verify", name}, 1), "gemma-4-E2B_q4_0-it.gguf is missing\n");
  EXPECT_EQ(said({"models", "remove", name}), name + " isn't here\n");
  if (fs::space(folder.path()).available < 6'500'000'000) {
    std::puts("the disk has no room for a download to begin: not shown");
    return;
  }
  test::LoopbackServer host([&](const auto& request, auto& connection) {
    if (request.head.find("mmproj") != std::string::npos) return connection.send("HTTP/1.1 404 No\r\nContent-Length: 0\r\n\r\n");
    connection.send(test::SmallModel::head(0, static_cast<std::size_t>(manifest.weights.bytes)) + bytes);
    connection.hang();
  });
  environment["AMBITCAP_MODEL_HOST"] = host.baseURL();
  const auto partial = models / (manifest.weights.fileName + ".partial");
  auto installing = start("halvo", {"models", "install", name});
  ASSERT_TRUE(test::eventually([&] { return fs::exists(partial) && fs::file_size(partial) == bytes.size(); }, 20));
  installing.signal(SIGINT);
  EXPECT_EQ(installing.wait(5), 130);
  const auto words = readFile(folder.path() / "out");
  EXPECT_NE(words.find("  0%  1 MB of 4.34 GB  downloading " + manifest.weights.fileName), std::string::npos) << words;
  EXPECT_EQ(words.find('\r'), std::string::npos) << "no bar where there is no terminal";
  EXPECT_NE(words.find("stopped; the next install goes on from here\n"), std::string::npos);
  EXPECT_EQ(readFile(partial), bytes);
  EXPECT_NE(said({"models"}).find("4.33 GB still to come"), std::string::npos) << readFile(folder.path() / "out");
  seemInstalled(manifest);
  fs::remove(models / manifest.projector.fileName);
  EXPECT_NE(said({"models", "install", name}, 1).find(manifest.projector.fileName + ": the download server answered 404"),
            std::string::npos);
  EXPECT_NE(said({"models", "remove", name}).find("removed " + partial.string() + " (3 MB)\n"), std::string::npos);
  EXPECT_FALSE(fs::exists(models / manifest.weights.fileName));
}

}  // namespace
}  // namespace halvo
