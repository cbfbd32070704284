#include "agents/LocalModel/LocalModelStart.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>
#include <vector>

#include "AmbitudeCore/Backends/Server/LlamaServerSocket.h"
#include "AmbitudeCore/Backends/Server/OllamaKeepAlive.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Provisioning/LocalModelStore.h"

namespace halvo {
namespace {

using State = LlamaServerStatus::State;

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> list;
  for (auto& text : texts) list.push_back(text.data());
  list.push_back(nullptr);
  return list;
}

}  // namespace

std::optional<LlamaServerLaunch> LocalModelStart::prepare(const std::stop_token& stop) {
  if (!world_.manifest) {
    tell(State::unknownModel, "no manifest for it in this build");
    return std::nullopt;
  }
  const auto& manifest = *world_.manifest;
  const auto state = LocalModelStore::diskState(manifest, world_.modelsDirectory);
  if (const auto* missing = std::get_if<LocalModelStore::Missing>(&state)) {
    tell(State::modelMissing, "missing: " + Text::join(missing->files, ", "));
    return std::nullopt;
  }
  const auto binary = LlamaServerLaunch::findBinary(world_.environment);
  if (!binary) {
    tell(State::runtimeMissing, fmt::format("no llama-server in PATH, and {} names none that can be run", LlamaServerLaunch::binaryEnvVar));
    return std::nullopt;
  }
  if (std::holds_alternative<LocalModelStore::NeedsVerification>(state) && !verify(stop)) return std::nullopt;
  LlamaServerLaunch launch{.serverBinary = *binary,
                           .weights = LocalModelStore::path(manifest.weights, world_.modelsDirectory),
                           .projector = LocalModelStore::path(manifest.projector, world_.modelsDirectory),
                           .listen = LlamaServerLaunch::listenFrom(world_.baseURL),
                           .alias = world_.model,
                           .contextLength = LlamaServerLaunch::contextLengthFor(world_.physicalMemoryBytes),
                           .sleepIdleSeconds = OllamaKeepAlive::sleepIdleSeconds(OllamaKeepAlive::configured(world_.environment))};
  tell(State::starting, binary->string());
  if (!isSocketReady(launch.listen)) return std::nullopt;
  return launch;
}

bool LocalModelStart::verify(const std::stop_token& stop) {
  world_.log(fmt::format("checking the files of {}", world_.model));
  try {
    LocalModelStore::verify(*world_.manifest, world_.modelsDirectory, stop);
    return true;
  } catch (const LocalModelStore::VerificationError& error) {
    using Kind = LocalModelStore::VerificationError::Kind;
    tell(error.kind() == Kind::mismatch  ? State::checksumMismatch
         : error.kind() == Kind::missing ? State::modelMissing
                                         : State::failed,
         error.what());
  } catch (const std::system_error& error) {
    // Unstamped, the classifier would refuse every look at the screen.
    tell(State::failed, fmt::format("{} not written: {}", LocalModelStore::stampFileName, error.what()));
  }
  return false;
}

bool LocalModelStart::isSocketReady(const LlamaServerLaunch::Listen& listen) {
  const auto* socket = std::get_if<LlamaServerLaunch::UnixSocket>(&listen);
  if (!socket) return true;
  try {
    makePrivateFolder(socket->path.parent_path());
    LlamaServerSocket::prepare(socket->path, ::geteuid());
    return true;
  } catch (const std::runtime_error& error) {
    tell(State::failed, error.what());
    return false;
  }
}

void LocalModelStart::exec(const LlamaServerLaunch& launch) {
  auto words = launch.arguments();
  words.insert(words.begin(), launch.serverBinary.string());
  auto settings = LlamaServerLaunch::execEnvironment(world_.environment);
  // The server's signals as a fresh program has them: what this one ignores or blocks would stay so in it.
  std::signal(SIGPIPE, SIG_DFL);
  sigset_t none;
  ::sigemptyset(&none);
  ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
  ::execve(launch.serverBinary.c_str(), pointers(words).data(), pointers(settings).data());
  tell(State::failed, fmt::format("{}: {}", launch.serverBinary.string(), errnoText(errno)));
}

void LocalModelStart::tell(State state, const std::string& message) {
  const LlamaServerStatus status{.state = state, .model = world_.model, .message = message, .atMs = world_.nowMs()};
  // The words of a failure hold its message already.
  world_.log(status.healthMessage() + (state == State::failed ? "" : ": " + message));
  try {
    std::filesystem::create_directories(world_.statusFile.parent_path());
    status.write(world_.statusFile);
  } catch (const std::system_error& error) {
    world_.log(fmt::format("{} not written: {}", LlamaServerStatus::fileName, error.what()));
  }
}

}  // namespace halvo
