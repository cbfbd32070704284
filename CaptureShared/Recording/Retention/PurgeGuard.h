#pragma once

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "CaptureShared/DataRoot/DataRootLayout.h"
#include "Platform/Machine/Machine.h"

/// Keeps code that deletes away from the recordings of a protected machine, where a test or a slip could purge them. Whatever can't be told
/// counts as protected.
namespace halvo::PurgeGuard {

namespace fs = std::filesystem;

inline constexpr const char* refusalExplanation = DataRootLayout::protectedMachineExplanation;

/// SHA-256 digests, 64 lower-case hexadecimal digits each, of the prefix "lark-erase-fence-v1:" and a machine's identity in upper case.
extern const std::set<std::string> protectedSerialHashes;

/// An absent or blank identity is protected. Never throws.
bool isProtectedMachine(const std::optional<std::string>& currentSerial, const std::set<std::string>& protectedHashes);

/// What is fenced off. Nothing known: protected.
struct Fence {
  std::vector<fs::path> roots = {};
  bool machineIsProtected = true;
};
/// True when the machine is protected and `path` is one of the roots or lies under one, compared without case, both as written and with
/// links resolved. On a protected machine a path that can't be resolved is refused.
bool refusesDeletion(const fs::path& path, const Fence& fence);

/// Whether this machine is protected; told by the first call and kept for the life of the process.
bool currentMachineIsProtected(const Machine& machine);
/// The data root, and the one of the config file when the environment names another.
std::vector<fs::path> protectedRoots();

}  // namespace halvo::PurgeGuard
