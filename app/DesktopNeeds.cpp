#include "app/DesktopNeeds.h"

#include <memory>
#include <mutex>
#include <optional>

#include <fmt/format.h>
#include <sys/utsname.h>

#include "AmbitudeAppKit/Stores/DiagnosticsReport.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/EventLogWriter.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/FFmpegResolver.h"
#include "CaptureShared/Foundation/UserFolders.h"
#include "CaptureShared/Net/HTTPTransportRouter.h"
#include "CaptureShared/Provisioning/ModelProvisioning.h"
#include "Platform/Linux/LinuxMachine.h"
#include "app/ArchiveKey.h"
#include "app/ArchiveKeys.h"

namespace halvo {

namespace {

/// Retention on this machine. The pages share one.
struct Retention {
  LinuxMachine machine = LinuxMachine();
  Calendar calendar = Calendar::local();
  RetentionRunner::Environment environment = RetentionRunner::Environment::real(machine, calendar);

  RetentionRunner::Result run(bool apply) const {
    return RetentionRunner::run({.apply = apply, .nowMs = Clock::system().nowMs(), .calendar = calendar, .environment = environment});
  }
  RecordingsPage page() const {
    auto made = RecordingsPage::of(run(false), environment.settings(), environment.ops);
    made.damage = RetentionSettingsStore::damage(RetentionSettingsStore::path(processEnvironment())).value_or("");
    return made;
  }
};

RecordingsView::Operations recordings() {
  const auto retention = std::make_shared<Retention>();
  return {.settings = retention->environment.settings,
          .change = retention->environment.persistSettings,
          .preview = [retention] { return retention->page(); },
          .apply = [retention] { return RecordingsPage::outcome(retention->run(true)); }};
}

ReviewView::Operations review() {
  const auto root = DataPaths::dataRoot();
  const auto clips = std::make_shared<MomentClips>(
      MomentClips::Setup{.root = root, .environment = processEnvironment(), .keyForGeneration = ArchiveKeys::ofThisAccount()});
  return {.desk = {.root = root,
                   .calendar = Calendar::local(),
                   .nowMs = Clock::system().nowMs,
                   .isRenderable = MomentClips::isRenderable(root)},
          .makeClip = [clips](std::int64_t frameMs, const std::stop_token& stop) { return clips->make(frameMs, stop); },
          .dropClip = [clips] { clips->drop(); },
          .ffmpeg = [] { return FFmpegResolver::resolve(processEnvironment()); }};
}

std::string diagnostics(AgentPlace& agents) {
  utsname system{};
  ::uname(&system);
  const auto memory = LinuxMachine().physicalMemoryBytes();
  const auto environment = processEnvironment();
  const auto logs = DiagnosticsReport::logsIn(UserFolders::home(environment) / "Library/Logs");
  return DiagnosticsReport::render({.version = EventLogWriter::defaultBuildVersion(),
                                    .system = fmt::format("{} {}, {} of memory", system.sysname, system.release,
                                                          memory ? ModelProvisioning::humanBytes(static_cast<std::int64_t>(*memory)) : "an unknown amount"),
                                    .programs = DiagnosticsReport::programs(agents.actions().states()),
                                    .writtenAt = ISO8601::utcSeconds(Clock::system().nowMs())},
                                   logs);
}

/// The models of this machine. Made when the page first asks.
struct Models {
  Environment environment = processEnvironment();
  LinuxMachine machine = LinuxMachine();
  std::unique_ptr<HTTPTransport> transport = HTTPTransportRouter::standard(environment);
  ModelShelf shelf = ModelShelf({.environment = environment, .machine = machine, .transport = *transport});
};

ModelView::Operations model() {
  struct Lazy {
    std::once_flag isMade;
    std::optional<Models> models;
  };
  const auto shelf = [lazy = std::make_shared<Lazy>()]() -> const ModelShelf& {
    std::call_once(lazy->isMade, [&] { lazy->models.emplace(); });
    return lazy->models->shelf;
  };
  return {.list = [shelf] { return ModelPage::of(shelf()); },
          .install = [shelf](const std::string& name, const ModelShelf::OnProgress& onProgress,
                             const std::stop_token& stop) { return shelf().install(name, onProgress, stop); },
          .verify = [shelf](const std::string& name, const ModelShelf::OnProgress& onProgress,
                            const std::stop_token& stop) { return shelf().verify(name, onProgress, stop); },
          .remove = [shelf](const std::string& name) { return shelf().remove(name); },
          .choose = [shelf](const std::string& name) { return shelf().choose(name); }};
}

}  // namespace

Pages::Needs desktopNeeds(const std::shared_ptr<AgentPlace>& agents) {
  return {.root = DataPaths::dataRoot(),
          .review = review(),
          .recordings = recordings(),
          .model = model(),
          .services = ServicesView::Operations::of({agents, &agents->actions()}),
          .diagnostics = [agents] { return diagnostics(*agents); }};
}

SetupView::Operations setupOperations() {
  return {.state = DataRootSetup::state, .carryOut = [](const std::string& root) {
            DataRootSetup::carryOut({.root = root, .physicalMemoryBytes = LinuxMachine().physicalMemoryBytes()});
            ArchiveKey::provision();
          }};
}

}  // namespace halvo
