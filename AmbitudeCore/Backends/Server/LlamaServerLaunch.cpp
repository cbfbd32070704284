#include "AmbitudeCore/Backends/Server/LlamaServerLaunch.h"

#include <fmt/format.h>

#include "CaptureShared/Foundation/ExecutablePath.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Net/URLParts.h"
#include "CaptureShared/Net/UnixSocketHTTPProtocol.h"
#include "CaptureShared/Provisioning/ModelProvisioning.h"

namespace halvo {
namespace {

/// Host, port, and the one origin a browser's page may have: of a socket none, since no page can reach it.
std::vector<std::string> listenArguments(const LlamaServerLaunch::Listen& listen) {
  return match(
      listen,
      [](const LlamaServerLaunch::UnixSocket& socket) -> std::vector<std::string> {
        return {"--host", socket.path.string(), "--port", "0", "--cors-origins", "http://llama-server.invalid"};
      },
      [](const LlamaServerLaunch::TCP& tcp) -> std::vector<std::string> {
        const auto port = std::to_string(tcp.port);
        return {"--host", tcp.host, "--port", port, "--cors-origins", "http://" + tcp.host + ":" + port};
      });
}

}  // namespace

std::vector<std::string> LlamaServerLaunch::arguments() const {
  std::vector<std::string> all{"--model", weights.string(), "--mmproj", projector.string(), "--alias", alias};
  const auto add = [&](const std::vector<std::string>& more) { all.insert(all.end(), more.begin(), more.end()); };
  add(listenArguments(listen));
  add({"--ctx-size", std::to_string(contextLength), "--parallel", "1", "--batch-size", "2048", "--ubatch-size", "2048", "--jinja",
       "--reasoning-format", "deepseek", "--sleep-idle-seconds", std::to_string(sleepIdleSeconds), "--cache-ram", "0", "--no-webui",
       "--no-slots", "--log-colors", "off"});
  add(samplingArguments());
  return all;
}

const std::vector<std::string>& LlamaServerLaunch::samplingArguments() {
  static const std::vector<std::string> all{"--temp",  "1.0", "--top-k",          "64", "--top-p", "0.95",
                                            "--min-p", "0.0", "--repeat-penalty", "1.0"};
  return all;
}

const Environment& LlamaServerLaunch::environment() {
  static const Environment own{{"MallocLargeCache", "0"}};
  return own;
}

Environment LlamaServerLaunch::processEnvironment(const Environment& inheriting) {
  auto all = inheriting;
  std::erase_if(all, [](const auto& entry) { return entry.first.starts_with("LLAMA_") || entry.first.starts_with("GGML_"); });
  for (const auto& [key, setting] : environment()) all.insert_or_assign(key, setting);
  return all;
}

std::vector<std::string> LlamaServerLaunch::execEnvironment(const Environment& inheriting) {
  std::vector<std::string> all;
  for (const auto& [key, setting] : processEnvironment(inheriting)) all.push_back(key + "=" + setting);
  return all;
}

LlamaServerLaunch::Listen LlamaServerLaunch::listenFrom(std::string_view url) {
  constexpr int httpPort = 80;
  if (const auto socket = UnixSocketHTTPProtocol::socketPath(url)) return UnixSocket{*socket};
  const auto parts = URLParts::parse(url);
  if (!parts) return TCP{"127.0.0.1", httpPort};
  return TCP{parts->host.empty() ? "127.0.0.1" : parts->host, parts->portNumber().value_or(httpPort)};
}

int LlamaServerLaunch::contextLengthFor(std::optional<std::uint64_t> physicalMemoryBytes) {
  return physicalMemoryBytes.value_or(0) >= ModelProvisioning::PhysicalMemory::sixteenGB ? 32768 : 16384;
}

std::optional<std::filesystem::path> LlamaServerLaunch::findBinary(const Environment& environment) {
  const auto ifRunnable = [](std::filesystem::path file) {
    return file.is_absolute() && ExecutablePath::isExecutableFile(file) ? std::optional(std::move(file)) : std::nullopt;
  };
  if (const auto named = value(environment, binaryEnvVar); named && !Text::isBlank(*named))
    return ifRunnable(std::string(Text::trim(*named)));
  const auto path = value(environment, "PATH").value_or("");
  // A relative folder would let the place we were started from choose the program.
  for (const auto folder : Text::split(path, ':'))
    if (auto found = ifRunnable(std::filesystem::path(folder) / "llama-server")) return found;
  return std::nullopt;
}

}  // namespace halvo
