#include "CaptureShared/Recording/Retention/PurgeGuard.h"

#include <algorithm>

#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/Digest.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::PurgeGuard {

namespace {

std::string comparable(const fs::path& path) {
  auto text = path.string();
  while (text.size() > 1 && text.ends_with('/')) text.pop_back();
  return Text::lower(text);
}

/// As written and with links resolved; absent when it can't be resolved.
std::optional<std::vector<std::string>> forms(const fs::path& path) {
  std::error_code error;
  const auto absolute = fs::absolute(path, error);
  if (error) return std::nullopt;
  const auto resolved = fs::weakly_canonical(absolute, error);
  if (error) return std::nullopt;
  return std::vector{comparable(absolute.lexically_normal()), comparable(resolved)};
}

bool isAtOrUnder(const std::string& path, const std::string& root) {
  return path == root || path.starts_with(root.ends_with('/') ? root : root + "/");
}

}  // namespace

const std::set<std::string> protectedSerialHashes{"5c1f0a9ed27b4836ae90f16bd3c47e28b15a06f3c9e84d72a1b6e03f48d7c295"};

bool isProtectedMachine(const std::optional<std::string>& currentSerial, const std::set<std::string>& protectedHashes) {
  if (!currentSerial || Text::isBlank(*currentSerial)) return true;
  try {
    return protectedHashes.contains(Digest::sha256Hex("lark-erase-fence-v1:" + Text::upper(Text::trim(*currentSerial))));
  } catch (const std::exception&) {
    return true;
  }
}

bool refusesDeletion(const fs::path& path, const Fence& fence) {
  if (!fence.machineIsProtected) return false;
  const auto paths = forms(path);
  if (!paths) return true;
  return std::ranges::any_of(fence.roots, [&](const fs::path& fenced) {
    const auto roots = forms(fenced);
    if (!roots) return true;
    return std::ranges::any_of(*paths, [&](const auto& form) {
      return std::ranges::any_of(*roots, [&](const auto& root) { return isAtOrUnder(form, root); });
    });
  });
}

bool currentMachineIsProtected(const Machine& machine) {
  static const bool isProtected = isProtectedMachine(machine.identity(), protectedSerialHashes);
  return isProtected;
}

std::vector<fs::path> protectedRoots() {
  std::vector<fs::path> roots{DataPaths::dataRoot()};
  if (const auto configured = DataPaths::configuredRoot(); configured && *configured != roots.front()) roots.push_back(*configured);
  return roots;
}

}  // namespace halvo::PurgeGuard
