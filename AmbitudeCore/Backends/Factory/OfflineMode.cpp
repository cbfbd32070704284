#include "AmbitudeCore/Backends/Factory/OfflineMode.h"

#include "CaptureShared/DataRoot/ConfigSourcedKeys.h"

namespace halvo::OfflineMode {

bool isEnabled(const Environment& environment) { return value(environment, envVar) == "1"; }

bool isPinnedFromOutside(const Environment& environment, const std::set<std::string, std::less<>>& configSourcedEnvKeys) {
  return ConfigSourcedKeys::isPinnedFromOutside(envVar, environment, configSourcedEnvKeys);
}

}  // namespace halvo::OfflineMode
