#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <pthread.h>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Net/URLParts.h"
#include "tools/PracticeModel/PracticeServer.h"

namespace {

constexpr const char* about =
    "A small rule-based server that speaks the inference server's dialect, for demonstrations and tests without weights. It answers the "
    "prompts of this system from the facts that stand in them, by fixed rules; it understands nothing and looks at no picture.";

constexpr const char* scriptHelp =
    "Fixed replies, one JSON object a line, used once each and in order before the rules: {\"text\", \"thinking\", \"tool_calls\": "
    "[{\"name\", "
    "\"arguments\"}], \"finish_reason\", \"delayMs\", \"for\"}; \"for\" keeps a line for one prompt: classifier, description, estimate, "
    "reason-check, gate, coach, digest, regeneration or other";

constexpr const char* faultHelp =
    "Be a bad server: loading (503 on every path at first), slow (a pause, then piece by piece), hang (no answer ever), garbage (no HTTP), "
    "bad-json (200, but no JSON), die-mid-stream (half an answer), http-500, empty (no word), truncated (cut off by the token cap)";

std::string faultNames() {
  std::string names;
  for (const auto& [fault, name] : halvo::RawValues<halvo::PracticeFault>::table) names += (names.empty() ? "" : ", ") + std::string(name);
  return names;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace halvo;
  std::string listen, socket, scriptFile, faultName = "none";
  PracticeDialect::Options options;
  CLI::App app{about, "PracticeModel"};
  auto* where = app.add_option_group("where")->require_option(1);
  where->add_option("--listen", listen, "http://127.0.0.1:PORT; port 0 picks a free one");
  where->add_option("--socket", socket, "A Unix socket's path; a left-over socket there is replaced");
  app.add_option("--script", scriptFile, scriptHelp)->check(CLI::ExistingFile);
  app.add_option("--context", options.contextTokens, "Context size in tokens; a longer prompt is refused")
      ->check(CLI::Range(64, 1 << 24))
      ->capture_default_str();
  app.add_option("--fault", faultName, faultHelp)->capture_default_str();
  app.add_option("--fault-seconds", options.faultSec, "How long loading lasts, and the pause of slow")
      ->check(CLI::Range(0.0, 86400.0))
      ->capture_default_str();
  CLI11_PARSE(app, argc, argv);

  // Blocked before any thread starts, so that every thread inherits it and `sigwait` alone takes the signal.
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGTERM);
  sigaddset(&ends, SIGINT);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  try {
    const auto fault = fromRawValue<PracticeFault>(faultName);
    if (!fault) throw std::runtime_error(fmt::format("--fault {} is none of: {}", faultName, faultNames()));
    options.fault = *fault;
    const auto address = URLParts::parse(listen);
    const bool anyPort = address && address->port == "0";
    if (socket.empty() && (!address || address->scheme != "http" || address->host != "127.0.0.1" || (!anyPort && !address->portNumber()) ||
                           address->requestTarget() != "/"))
      throw std::runtime_error(fmt::format("--listen {} is not http://127.0.0.1:PORT", listen));

    PracticeDialect dialect(options, scriptFile.empty() ? std::string() : readFile(scriptFile), Clock::system().nowMs());
    const auto server = socket.empty() ? std::make_unique<PracticeServer>(dialect, anyPort ? 0 : *address->portNumber())
                                       : std::make_unique<PracticeServer>(dialect, std::filesystem::path(socket));
    fmt::print("practice model listening on {}\n", server->url());
    std::fflush(stdout);
    std::jthread serving([&](const std::stop_token& stop) { server->run(stop); });
    int signal = 0;
    sigwait(&ends, &signal);
    return 0;
  } catch (const std::exception& error) {
    fmt::print(stderr, "PracticeModel: {}\n", error.what());
    return 1;
  }
}
