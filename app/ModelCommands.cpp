#include "app/ModelCommands.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "AmbitudeAppKit/Live/TerminalText.h"
#include "AmbitudeCore/Backends/LocalInferenceEndpoint.h"
#include "AmbitudeCore/Classifier/ClassifierModel.h"
#include "AmbitudeCore/Classifier/ModelIntegrityCheck.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/TerminationSignals.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Net/HTTPTransportRouter.h"
#include "CaptureShared/Net/URLParts.h"
#include "CaptureShared/Provisioning/InstallProgressText.h"
#include "CaptureShared/Provisioning/LlamaServerStatus.h"
#include "CaptureShared/Provisioning/LocalModelStore.h"
#include "CaptureShared/Provisioning/ModelDownloadHost.h"
#include "CaptureShared/Provisioning/ModelProvisioning.h"
#include "CaptureShared/Provisioning/ModelRemoval.h"
#include "Platform/Linux/LinuxMachine.h"
#include "app/CommandOutput.h"

namespace halvo::ModelCommands {
namespace {

using ModelProvisioning::humanBytes;

constexpr int interrupted = 130;
constexpr std::int64_t barGranularityBytes = 1 << 20;

using CommandOutput::fail;
using CommandOutput::print;

/// What a command works on.
struct Place {
  Environment environment = processEnvironment();
  std::filesystem::path directory = LocalModelStore::modelsDirectory(environment);
  std::optional<std::uint64_t> memory = LinuxMachine().physicalMemoryBytes();
  std::string configured = ClassifierModel::resolved(environment);
};

LocalModelInstaller installer(const Place& place, HTTPTransport& transport, std::int64_t granularity) {
  return LocalModelInstaller({.directory = place.directory,
                              .ollamaModelsDirectory = OllamaBlobReuse::modelsDirectory(place.environment),
                              .transport = transport,
                              .progressGranularityBytes = granularity});
}

std::string unknownModelWords(std::string_view name) {
  return fmt::format("there's no download for {}; halvo models lists what there is", TerminalText::oneLine(name));
}

std::string stateText(const LocalModelStore::Manifest& manifest, const std::filesystem::path& directory, std::int64_t bytesToGo) {
  return match(
      LocalModelStore::diskState(manifest, directory),
      [&](const LocalModelStore::Missing&) {
        return bytesToGo < manifest.totalBytes() ? humanBytes(bytesToGo) + " still to come" : std::string("not downloaded");
      },
      [](const LocalModelStore::NeedsVerification&) { return std::string("here, not checked"); },
      [](const LocalModelStore::Verified&) { return std::string("ready"); });
}

/// Shows progress until it goes; a bar is left standing on its own line.
class ProgressPrinter {
 public:
  ProgressPrinter() = default;
  ProgressPrinter(const ProgressPrinter&) = delete;
  ProgressPrinter& operator=(const ProgressPrinter&) = delete;
  ~ProgressPrinter() {
    if (isBar_ && hasShown_) std::fputs("\n", stdout);
    std::fflush(stdout);
  }
  void show(const LocalModelInstaller::Progress& progress) {
    const auto line = text_.next(progress, Clock::system().nowMs());
    if (!line) return;
    constexpr const char* toLineEnd = "\x1b[K";
    std::fputs((isBar_ ? "\r" + *line + toLineEnd : *line + "\n").c_str(), stdout);
    std::fflush(stdout);
    hasShown_ = true;
  }

 private:
  const bool isBar_ = ::isatty(STDOUT_FILENO) == 1;
  bool hasShown_ = false;
  InstallProgressText text_{isBar_ ? InstallProgressText::Style::bar : InstallProgressText::Style::lines};
};

int runInstall(const Place& place, const LocalModelStore::Manifest& manifest, bool hasHost) {
  const TerminationSignals signals;
  const auto transport = HTTPTransportRouter::standard(place.environment);
  auto work = installer(place, *transport, barGranularityBytes);
  // What is here, or with another installation, needs no server.
  if (!hasHost && work.bytesRemaining(manifest) > 0)
    return fail(fmt::format("no download server is configured: set {} to its https address", ModelDownloadHost::envVar));
  const LinuxMachine machine;
  if (const auto shortfall = work.diskShortfall(manifest, ModelProvisioning::availableDiskBytes(place.directory, machine)))
    return fail(*shortfall);
  try {
    ProgressPrinter printer;
    work.install(
        manifest, [&](const LocalModelInstaller::Progress& progress) { printer.show(progress); }, signals.token());
  } catch (const Cancelled&) {
    std::fputs("stopped; the next install goes on from here\n", stderr);
    return interrupted;
  } catch (const InstallError& error) {
    const bool namesFile = error.kind() == InstallError::Kind::checksumMismatch;
    return fail((namesFile ? "" : error.file() + ": ") + error.what());
  }
  print(manifest.model + " is installed");
  return 0;
}

}  // namespace

int list() {
  const Place place;
  const auto transport = HTTPTransportRouter::standard(place.environment);
  const auto work = installer(place, *transport, barGranularityBytes);
  const auto recommended = place.memory ? ModelProvisioning::recommendedDefault(*place.memory) : std::nullopt;
  for (const auto& model : ModelProvisioning::knownModels()) {
    const auto manifest = LocalModelStore::manifest(model.name);
    if (!manifest) continue;
    std::string fit = "memory unknown";
    if (place.memory)
      fit = ModelProvisioning::modelFitsAvailableMemory(*place.memory, model) ? "fits this machine" : "too large for this machine";
    const auto state = stateText(*manifest, place.directory, work.bytesRemaining(*manifest));
    print(fmt::format("{} {:<18}  {:>8}  {:<26}  {}{}", ModelProvisioning::modelNameMatches(model.name, place.configured) ? "*" : " ",
                      model.name, humanBytes(model.totalBytes), fit, state, recommended == model.name ? "  (recommended here)" : ""));
  }
  if (!LocalModelStore::manifest(place.configured)) print(unknownModelWords(place.configured) + " (it is the one configured)");
  return 0;
}

int install(const std::optional<std::string>& name) {
  const Place place;
  auto wanted = name;
  if (!wanted && LocalModelStore::manifest(place.configured)) wanted = place.configured;
  if (!wanted && place.memory) wanted = ModelProvisioning::recommendedDefault(*place.memory);
  if (!wanted) return fail("this machine has too little memory for any local model; name one to install it all the same");
  const auto host = ModelDownloadHost::resolve(place.environment);
  const auto manifest = LocalModelStore::manifest(*wanted, host.value_or(""));
  if (!manifest) return fail(unknownModelWords(*wanted));
  if (place.memory)
    if (const auto warning = ModelProvisioning::memoryWarning(manifest->model, *place.memory))
      std::fputs((*warning + "\n").c_str(), stderr);
  return runInstall(place, *manifest, host.has_value());
}

int verify(const std::optional<std::string>& name) {
  const Place place;
  const auto wanted = name.value_or(place.configured);
  const auto manifest = LocalModelStore::manifest(wanted);
  if (!manifest) return fail(unknownModelWords(wanted));
  const TerminationSignals signals;
  try {
    ProgressPrinter printer;
    LocalModelStore::verify(*manifest, place.directory, signals.token(), [&](std::int64_t bytes) {
      printer.show(
          {.stage = LocalModelInstaller::Checking{manifest->model}, .completedBytes = bytes, .totalBytes = manifest->totalBytes()});
    });
  } catch (const Cancelled&) {
    return interrupted;
  } catch (const std::exception& error) {
    return fail(error.what());
  }
  print(manifest->model + " is as it was published");
  return 0;
}

int remove(const std::string& name) {
  const Place place;
  const auto manifest = LocalModelStore::manifest(name);
  if (!manifest) return fail(unknownModelWords(name));
  const auto plan = ModelRemoval::plan(*manifest, place.directory);
  if (plan.items.empty() && plan.refusals.empty()) {
    print(manifest->model + " isn't here");
    return 0;
  }
  try {
    ModelRemoval::apply(plan, *manifest, place.directory);
  } catch (const std::exception& error) {
    return fail(error.what());
  }
  for (const auto& item : plan.items) print(fmt::format("removed {} ({})", item.file.string(), humanBytes(item.bytes)));
  return 0;
}

namespace {

/// What the server itself says; absent when none answers.
std::optional<std::string> serving(const Environment& environment) {
  constexpr double patienceSec = 1;
  constexpr int loading = 503;
  try {
    const auto base = LocalInferenceEndpoint::resolveOrThrow(environment);
    const auto response =
        HTTPTransportRouter::standard(environment)->send({.url = joinedURL(base, "props"), .timeoutSec = patienceSec}, {});
    if (response.status == loading) return LlamaServerStatus{.state = LlamaServerStatus::State::starting}.healthMessage();
    if (!response.isSuccess()) return fmt::format("the local server answers {}", response.status);
    return "serving " + std::filesystem::path(ModelIntegrityGuard::servedPathIn(response.body)).filename().string();
  } catch (const LocalInferenceEndpoint::ResolutionError& error) {
    return error.what();
  } catch (const ModelIntegrityGuard::FetchError& error) {
    return error.what();
  } catch (const TransportError&) {
    return std::nullopt;
  }
}

std::string startText(const Environment& environment, std::int64_t nowMs) {
  const auto status = LlamaServerStatus::read(LlamaServerStatus::url(environment));
  if (!status) return "the local model isn't running";
  // A start that is long over and of which nothing came is not going to be one.
  constexpr std::int64_t startGraceMs = 180'000;
  if (status->state == LlamaServerStatus::State::starting && nowMs - status->atMs > startGraceMs)
    return "the local model isn't running any more";
  return status->healthMessage();
}

}  // namespace

std::string healthLines() {
  const Place place;
  const auto answer = serving(place.environment);
  auto lines = "model:     " + TerminalText::oneLine(answer ? *answer : startText(place.environment, Clock::system().nowMs()));
  const auto subject = ModelIntegrityCheck::Subject::of(place.configured, place.environment);
  const auto note = ModelIntegrityGuard::readRefusalNote(subject.refusalNote);
  if (note && ModelProvisioning::modelNameMatches(note->model, place.configured))
    lines += "\n           " + TerminalText::oneLine(note->message);
  return lines;
}

}  // namespace halvo::ModelCommands
