#include "AmbitudeAppKit/Stores/ModelShelf.h"

#include "AmbitudeCore/Classifier/ClassifierModel.h"
#include "CaptureShared/DataRoot/AgentConfig.h"
#include "CaptureShared/DataRoot/ConfigSourcedKeys.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Provisioning/LocalModelStore.h"
#include "CaptureShared/Provisioning/ModelDownloadHost.h"
#include "CaptureShared/Provisioning/ModelProvisioning.h"
#include "CaptureShared/Provisioning/ModelRemoval.h"

namespace halvo {

namespace {

constexpr const char* modelKey = "AMBITCHECK_MODEL";

ModelShelf::Outcome unknown(const std::string& model) { return ModelShelf::Failed{tr("there's no download for {}", model)}; }

}  // namespace

ModelShelf::ModelShelf(Setup setup)
    : setup_(std::move(setup)),
      directory_(LocalModelStore::modelsDirectory(setup_.environment)),
      memory_(setup_.machine.physicalMemoryBytes()) {}

LocalModelInstaller ModelShelf::installer() const {
  return LocalModelInstaller({.directory = directory_,
                              .ollamaModelsDirectory = OllamaBlobReuse::modelsDirectory(setup_.environment),
                              .transport = setup_.transport,
                              .progressGranularityBytes = setup_.progressGranularityBytes});
}

std::int64_t ModelShelf::bytesRemaining(const LocalModelStore::Manifest& manifest) const { return installer().bytesRemaining(manifest); }

std::string ModelShelf::configured() const {
  if (!ConfigSourcedKeys::isPinnedFromOutside(modelKey, setup_.environment, ConfigSourcedKeys::all())) {
    const auto settings = AgentConfig::load().settings;
    if (const auto chosen = settings.find(modelKey); chosen != settings.end() && !Text::isBlank(chosen->second))
      return std::string(Text::trim(chosen->second));
  }
  return ClassifierModel::resolved(setup_.environment);
}

std::optional<std::string> ModelShelf::wanted() const {
  if (auto name = configured(); LocalModelStore::manifest(name)) return name;
  return memory_ ? ModelProvisioning::recommendedDefault(*memory_) : std::nullopt;
}

ModelShelf::Outcome ModelShelf::install(const std::string& model, const OnProgress& onProgress, const std::stop_token& stop) const {
  const auto host = ModelDownloadHost::resolve(setup_.environment);
  const auto manifest = LocalModelStore::manifest(model, host.value_or(""));
  if (!manifest) return unknown(model);
  auto work = installer();
  // What is here, or with another installation, needs no server.
  if (!host && work.bytesRemaining(*manifest) > 0)
    return Failed{tr("no download server is configured: set {} to its https address", ModelDownloadHost::envVar)};
  if (const auto shortfall = work.diskShortfall(*manifest, ModelProvisioning::availableDiskBytes(directory_, setup_.machine)))
    return Failed{*shortfall};
  try {
    work.install(*manifest, onProgress, stop);
  } catch (const Cancelled&) {
    return Stopped{};
  } catch (const InstallError& error) {
    const bool namesFile = error.kind() == InstallError::Kind::checksumMismatch;
    return Failed{(namesFile ? "" : error.file() + ": ") + error.what()};
  }
  return Done{{tr("{} is installed", manifest->model)}};
}

ModelShelf::Outcome ModelShelf::verify(const std::string& model, const OnProgress& onProgress, const std::stop_token& stop) const {
  const auto manifest = LocalModelStore::manifest(model);
  if (!manifest) return unknown(model);
  try {
    LocalModelStore::verify(*manifest, directory_, stop, [&](std::int64_t bytes) {
      onProgress({.stage = LocalModelInstaller::Checking{manifest->model}, .completedBytes = bytes, .totalBytes = manifest->totalBytes()});
    });
  } catch (const Cancelled&) {
    return Stopped{};
  } catch (const std::exception& error) {
    return Failed{error.what()};
  }
  return Done{{tr("{} is as it was published", manifest->model)}};
}

ModelShelf::Outcome ModelShelf::remove(const std::string& model) const {
  const auto manifest = LocalModelStore::manifest(model);
  if (!manifest) return unknown(model);
  const auto plan = ModelRemoval::plan(*manifest, directory_);
  if (plan.items.empty() && plan.refusals.empty()) return Done{{tr("{} isn't here", manifest->model)}};
  try {
    ModelRemoval::apply(plan, *manifest, directory_);
  } catch (const std::exception& error) {
    return Failed{error.what()};
  }
  Done done;
  for (const auto& item : plan.items)
    done.lines.push_back(tr("removed {} ({})", item.file.string(), ModelProvisioning::humanBytes(item.bytes)));
  return done;
}

ModelShelf::Outcome ModelShelf::choose(const std::string& model) const {
  const auto manifest = LocalModelStore::manifest(model);
  if (!manifest) return unknown(model);
  try {
    AgentConfig::setEnvValue(manifest->model, modelKey, DataPaths::configURL());
  } catch (const std::exception& error) {
    return Failed{tr("not changed: {}", error.what())};
  }
  return Done{{tr("{} is chosen; it holds once the background programs are restarted", manifest->model)}};
}

}  // namespace halvo
