#include "CaptureShared/DataRoot/ConfigSourcedKeys.h"

#include "CaptureShared/Foundation/LockedValue.h"

namespace halvo::ConfigSourcedKeys {

namespace {
LockedValue<std::set<std::string, std::less<>>>& configSourcedEnvKeys() {
  static LockedValue<std::set<std::string, std::less<>>> keys;
  return keys;
}
}  // namespace

void fill(const std::vector<std::string>& applied) { configSourcedEnvKeys().set({applied.begin(), applied.end()}); }
std::set<std::string, std::less<>> all() { return configSourcedEnvKeys().get(); }

bool isPinnedFromOutside(std::string_view key, const Environment& environment, const std::set<std::string, std::less<>>& keys) {
  const auto set = value(environment, key);
  return set && !set->empty() && !keys.contains(key);
}

}  // namespace halvo::ConfigSourcedKeys
