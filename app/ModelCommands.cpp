#include "app/ModelCommands.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <memory>

#include "AmbitudeAppKit/Live/TerminalText.h"
#include "AmbitudeAppKit/Present/ModelPage.h"
#include "AmbitudeAppKit/Stores/ModelShelf.h"
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
#include "CaptureShared/Provisioning/ModelProvisioning.h"
#include "Platform/Linux/LinuxMachine.h"
#include "app/CommandOutput.h"

namespace halvo::ModelCommands {
namespace {

constexpr int interrupted = 130;

using CommandOutput::fail;
using CommandOutput::print;

/// What a command works on.
struct Place {
  Environment environment = processEnvironment();
  LinuxMachine machine = LinuxMachine();
  std::unique_ptr<HTTPTransport> transport = HTTPTransportRouter::standard(environment);
  ModelShelf shelf = ModelShelf({.environment = environment, .machine = machine, .transport = *transport});
};

/// Tells what came of it; the exit status.
int told(const ModelShelf::Outcome& outcome, const char* ifStopped = "") {
  return match(
      outcome,
      [](const ModelShelf::Done& done) {
        for (const auto& line : done.lines) print(line);
        return 0;
      },
      [&](const ModelShelf::Stopped&) {
        std::fputs(ifStopped, stderr);
        return interrupted;
      },
      [](const ModelShelf::Failed& failed) { return fail(TerminalText::oneLine(failed.why)); });
}

int unknownModel(std::string_view name) {
  return fail(fmt::format("there's no download for {}; halvo models lists what there is", TerminalText::oneLine(name)));
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

}  // namespace

int list() {
  const Place place;
  const auto page = ModelPage::of(place.shelf);
  for (const auto& row : page.rows)
    print(fmt::format("{} {:<18}  {:>8}  {:<26}  {}{}", row.isConfigured ? "*" : " ", row.name, row.size, row.fit, row.state,
                      row.isRecommended ? "  (recommended here)" : ""));
  if (!page.unknownConfigured.empty()) print(TerminalText::oneLine(page.unknownConfigured));
  return 0;
}

int install(const std::optional<std::string>& name) {
  const Place place;
  const auto wanted = name ? name : place.shelf.wanted();
  if (!wanted) return fail("this machine has too little memory for any local model; name one to install it all the same");
  if (!LocalModelStore::manifest(*wanted)) return unknownModel(*wanted);
  if (const auto memory = place.shelf.memoryBytes())
    if (const auto warning = ModelProvisioning::memoryWarning(*wanted, *memory)) std::fputs((*warning + "\n").c_str(), stderr);
  const TerminationSignals signals;
  ModelShelf::Outcome outcome;
  {
    ProgressPrinter printer;
    outcome = place.shelf.install(*wanted, [&](const auto& progress) { printer.show(progress); }, signals.token());
  }
  return told(outcome, "stopped; the next install goes on from here\n");
}

int verify(const std::optional<std::string>& name) {
  const Place place;
  const auto wanted = name.value_or(place.shelf.configured());
  if (!LocalModelStore::manifest(wanted)) return unknownModel(wanted);
  const TerminationSignals signals;
  ModelShelf::Outcome outcome;
  {
    ProgressPrinter printer;
    outcome = place.shelf.verify(wanted, [&](const auto& progress) { printer.show(progress); }, signals.token());
  }
  return told(outcome);
}

int remove(const std::string& name) {
  const Place place;
  return LocalModelStore::manifest(name) ? told(place.shelf.remove(name)) : unknownModel(name);
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
  const auto environment = processEnvironment();
  const auto configured = ClassifierModel::resolved(environment);
  const auto answer = serving(environment);
  auto lines = "model:     " + TerminalText::oneLine(answer ? *answer : startText(environment, Clock::system().nowMs()));
  const auto subject = ModelIntegrityCheck::Subject::of(configured, environment);
  const auto note = ModelIntegrityGuard::readRefusalNote(subject.refusalNote);
  if (note && ModelProvisioning::modelNameMatches(note->model, configured))
    lines += "\n           " + TerminalText::oneLine(note->message);
  return lines;
}

}  // namespace halvo::ModelCommands
