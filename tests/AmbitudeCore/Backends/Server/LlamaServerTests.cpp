#include <gtest/gtest.h>
#include <unistd.h>

#include "AmbitudeCore/Backends/Server/LlamaServerLaunch.h"
#include "AmbitudeCore/Backends/Server/LlamaServerSocket.h"
#include "AmbitudeCore/Backends/Server/OllamaKeepAlive.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Net/UnixSocketHTTPProtocol.h"
#include "tests/support/LoopbackServer.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;

TEST(LlamaServerLaunch, theWholeCommandLine) {
  LlamaServerLaunch launch{.serverBinary = "/b",
                           .weights = "/m/w.gguf", .projector = "/m/p.gguf", .alias = "gemma4:12b-it-qat", .contextLength = 32768,
                           .sleepIdleSeconds = 360};
  const std::string before = "--model /m/w.gguf --mmproj /m/p.gguf --alias gemma4:12b-it-qat ";
  const std::string behind =
      " --ctx-size 32768 --parallel 1 --batch-size 2048 --ubatch-size 2048 --jinja --reasoning-format deepseek --sleep-idle-seconds 360 "
      "--cache-ram 0 --no-webui --no-slots --log-colors off --temp 1.0 --top-k 64 --top-p 0.95 --min-p 0.0 --repeat-penalty 1.0";
  const std::pair<std::string, const char*> cases[] = {
      {UnixSocketHTTPProtocol::baseURL("/h/Application Support/s"),
       "--host /h/Application Support/s --port 0 --cors-origins http://llama-server.invalid"},
      {"http://127.0.0.1:11477/", "--host 127.0.0.1 --port 11477 --cors-origins http://127.0.0.1:11477"},
      {"", "--host 127.0.0.1 --port 80 --cors-origins http://127.0.0.1:80"}};
  for (const auto& [url, listen] : cases) {
    launch.listen = LlamaServerLaunch::listenFrom(url);
    EXPECT_EQ(Text::join(launch.arguments(), " "), before + listen + behind);
  }
}

TEST(LlamaServerLaunch, nothingOfTheShellReachesTheServer) {
  const Environment shell{{"PATH", "/bin"}, {"LLAMA_ARG_HOST", "0.0.0.0"}, {"GGML_X", "1"}, {"MallocLargeCache", "1"}, {"XLLAMA_", "x"}};
  EXPECT_EQ(LlamaServerLaunch::execEnvironment(shell), (std::vector<std::string>{"MallocLargeCache=0", "PATH=/bin", "XLLAMA_=x"}));
  EXPECT_EQ(LlamaServerLaunch::contextLengthFor(std::uint64_t{16} << 30), 32768);
  EXPECT_EQ(LlamaServerLaunch::contextLengthFor((std::uint64_t{16} << 30) - 1), 16384);
}

TEST(LlamaServerLaunch, findBinary) {
  const test::TemporaryFolder folder;
  const auto name = folder.path() / "llama-server";
  folder.write("llama-server", "#!/bin/sh\n"), folder.write("other", "#!/bin/sh\n");
  const auto path = "/no/where::.:" + folder.path().string();
  EXPECT_EQ(LlamaServerLaunch::findBinary({{"PATH", path}}), std::nullopt) << "not executable";
  for (const char* file : {"llama-server", "other"}) fs::permissions(folder.path() / file, fs::perms::owner_all);
  EXPECT_EQ(LlamaServerLaunch::findBinary({{"PATH", path}}), name);
  const auto configured = [&](const std::string& file) {
    return LlamaServerLaunch::findBinary({{"PATH", path}, {"AMBITCAP_LLAMA_SERVER", file}});
  };
  EXPECT_EQ(configured(folder.path() / "other"), folder.path() / "other");
  EXPECT_EQ(configured("/no/such"), std::nullopt) << "never another than the one that was named";
  EXPECT_EQ(configured("other"), std::nullopt);
  EXPECT_EQ(configured(" "), name);
}

TEST(OllamaKeepAlive, onlyAWholeNumberWithAUnit) {
  const std::pair<const char*, int> cases[] = {{"45s", 45},  {"10m", 600},        {"2h", 7200},         {"0m", 360},   {"5d", 360},
                                               {"", 360},    {"m", 360},          {"-1s", 360},         {"1.5h", 360}, {"05m", 360},
                                               {"6m ", 360}, {"999999999h", 360}, {"99999999999s", 360}};
  for (const auto& [text, want] : cases) EXPECT_EQ(OllamaKeepAlive::sleepIdleSeconds(text), want) << text;
  EXPECT_EQ(OllamaKeepAlive::configured({{"AMBITCAP_OLLAMA_KEEP_ALIVE", "1h"}}), "1h");
  EXPECT_EQ(OllamaKeepAlive::configured({{"AMBITCAP_OLLAMA_KEEP_ALIVE", "5d"}}), "6m");
}

TEST(LlamaServerSocket, prepare) {
  const test::TemporaryFolder folder;
  const auto directory = folder.path() / "llama", socket = directory / "llama.sock";
  fs::create_directory(directory), fs::permissions(directory, fs::perms(0755));
  const auto refusal = [](const fs::path& path, uid_t uid = ::geteuid()) -> std::string {
    try {
      return LlamaServerSocket::prepare(path, uid), "";
    } catch (const LlamaServerSocket::PrepareError& error) {
      return error.what();
    }
  };
  EXPECT_EQ(refusal(socket), "");
  EXPECT_EQ(fs::status(directory).permissions(), fs::perms::owner_all);
  const auto longest = directory / std::string(102 - directory.native().size(), 'x');
  EXPECT_EQ(refusal(longest), "");
  EXPECT_EQ(refusal(longest.string() + "x"), "the socket path is longer than 103 bytes: " + longest.string() + "x");
  EXPECT_EQ(refusal(longest.parent_path() / (std::string(101 - directory.native().size(), 'x') + "é")).find("the socket path"), 0u)
      << "bytes";
  EXPECT_TRUE(refusal(folder.path() / "none/s").starts_with("lstat ")) << refusal(folder.path() / "none/s");
  EXPECT_EQ(refusal(socket, ::geteuid() + 1), directory.string() + " is owned by uid " + std::to_string(::geteuid()) + ", not this user (" +
                                                  std::to_string(::geteuid() + 1) + ")");
  fs::create_symlink(directory, folder.path() / "link");
  EXPECT_EQ(refusal(folder.path() / "link/s"), (folder.path() / "link").string() + " is not a directory (a symlink or a file)");
  folder.write("llama/llama.sock", "mine");
  EXPECT_EQ(refusal(socket), socket.string() + " exists and is not a socket; not removing it");
  EXPECT_EQ(readFile(socket), "mine");
  fs::remove(socket);
  {
    const test::LoopbackServer server([](const auto&, auto&) {}, socket);
    EXPECT_EQ(refusal(socket), "another server is already listening on " + socket.string());
    EXPECT_TRUE(fs::exists(socket));
    // Its own path is removed as it ends; a crash leaves the other name of the same socket.
    fs::create_hard_link(socket, directory / "stale");
  }
  ASSERT_TRUE(fs::is_socket(directory / "stale"));
  EXPECT_EQ(refusal(directory / "stale"), "");
  EXPECT_FALSE(fs::exists(fs::symlink_status(directory / "stale")));
}

}  // namespace
}  // namespace halvo
