#include "AmbitudeAppKit/Stores/DataRootSetup.h"

#include <stdexcept>
#include <system_error>

#include "CaptureShared/DataRoot/AgentConfig.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/DataRoot/DataRootLayout.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Foundation/UserFolders.h"
#include "CaptureShared/Provisioning/ModelProvisioning.h"

namespace halvo::DataRootSetup {

namespace fs = std::filesystem;

State state() {
  DataPaths::invalidateConfigCache();
  if (DataPaths::isDataRootAvailable()) return State::ready;
  if (DataPaths::dataRootSource() != DataPaths::RootSource::unconfigured) return State::away;
  return DataPaths::configFileExistsButFailedToParse() ? State::damaged : State::unconfigured;
}

std::string reason(State state) {
  switch (state) {
    case State::ready: return {};
    case State::damaged: return tr("{} can't be read as settings; mend or remove it first", DataPaths::configURL().string());
    case State::unconfigured:
    case State::away: return DataPaths::dataRootUnavailableReason();
  }
  return {};
}

std::optional<std::string> objection(const std::string& text) {
  const fs::path root = text;
  if (!root.is_absolute() || !Text::isValidUTF8(text)) return tr("give the whole path, from / on");
  const auto home = UserFolders::home(processEnvironment());
  if (root.lexically_normal() == home.lexically_normal() || !root.has_relative_path()) return tr("give a folder of its own");
  std::error_code error;
  if (fs::is_directory(root, error)) {
    const auto survey = DataRootLayout::survey(root);
    if (survey.unknown.empty()) return std::nullopt;
    return tr("there is something else in it ({}): give a folder of its own", survey.unknown.front());
  }
  if (fs::exists(fs::symlink_status(root, error))) return tr("that is no folder");
  // A folder that is missing further up may be a volume that is not mounted.
  if (root != DataPaths::defaultRootForNewInstall() && !fs::is_directory(root.parent_path(), error))
    return tr("{} is not there", root.parent_path().string());
  return std::nullopt;
}

void carryOut(const Choice& choice) {
  if (const auto against = objection(choice.root.string())) throw std::runtime_error(*against);
  // The folder before the setting that names it, the setting before what reads it.
  if (choice.root == DataPaths::defaultRootForNewInstall()) fs::create_directories(choice.root.parent_path());
  makePrivateFolder(choice.root);
  const auto config = DataPaths::configURL();
  fs::create_directories(config.parent_path());
  const bool isNew = AgentConfig::writeExampleIfAbsent(config);
  auto model = choice.model;
  // A file that was there may name the model of somebody's choice.
  if (!model && isNew && choice.physicalMemoryBytes) model = ModelProvisioning::recommendedDefault(*choice.physicalMemoryBytes);
  AgentConfig::seedDefaultEnvIfAbsent(config, choice.physicalMemoryBytes.value_or(0), [&](std::uint64_t) { return model; });
  if (model) AgentConfig::setEnvValue(*model, "AMBITCHECK_MODEL", config);
  DataPaths::setConfiguredRoot(choice.root);
}

}  // namespace halvo::DataRootSetup
