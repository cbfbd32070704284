#include "app/AgentPlace.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include "AmbitudeAppKit/AgentControl/AgentUnitFiles.h"
#include "AmbitudeCore/Backends/Factory/ModelBackendFactory.h"
#include "CaptureShared/DataRoot/AgentConfig.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/ExecutablePath.h"
#include "CaptureShared/Foundation/UserFolders.h"

namespace halvo {

namespace {

namespace fs = std::filesystem;

/// The package's own folder counts as signed when nobody but its owner can change what is in it.
AgentServiceMigration::Precondition precondition(const fs::path& programs) {
  AgentServiceMigration::Bundle bundle{.bundlePath = programs.string(), .installedPath = HALVO_INSTALL_DIR};
  struct stat folder {};
  struct statvfs volume {};
  if (::stat(programs.c_str(), &folder) == 0 && folder.st_uid == 0 && !(folder.st_mode & (S_IWGRP | S_IWOTH)))
    bundle.teamIdentifier = std::string(AgentServiceMigration::developerTeamID);
  bundle.isOnReadOnlyVolume = ::statvfs(programs.c_str(), &volume) == 0 && (volume.f_flag & ST_RDONLY);
#ifndef NDEBUG
  bundle.isDebugBuild = true;
#endif
  return AgentServiceMigration::precondition(bundle);
}

}  // namespace

AgentPlace::AgentPlace(Copy copy)
    : programs_(ExecutablePath::siblingDirectory(ExecutablePath::resolveSelf())),
      unitFolder_(AgentUnitFiles::folder(environment_)),
      services_({.unitFolder = unitFolder_,
                 .unitFiles = [this](const std::string& label) { return AgentUnitFiles::ofLabel(label, programs_); }}),
      actions_({.control = {.services = services_,
                            .programFolder = programs_,
                            .legacyFolder = AgentUnitFiles::legacyFolder(environment_),
                            .localModelStatusFile = LlamaServerStatus::url(environment_),
                            .missingConfigKeys =
                                [this](BackgroundAgent agent) -> std::vector<std::string> {
                                  if (agent != BackgroundAgent::coachDriver) return {};
                                  return AgentConfig::missingKeys(ModelBackendFactory::coachDriverRequiredConfigKeys(environment_), {},
                                                                  environment_);
                                }},
                .unitFolder = unitFolder_,
                .markerFolder = UserFolders::supportDir(environment_) / "service-migration",
                .configFile = DataPaths::configURL(),
                .allowed = copy == Copy::anywhere ? AgentServiceMigration::Precondition::ok : precondition(programs_),
                .installedFolder = HALVO_INSTALL_DIR,
                .dataRoot = [] { return DataPaths::isDataRootAvailable() ? std::optional(DataPaths::dataRoot()) : std::nullopt; }}) {}

}  // namespace halvo
