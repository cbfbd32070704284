#include "CaptureShared/Recording/VideoArchiveKeyProvisioning.h"

#include <fmt/format.h>

#include "CaptureShared/Foundation/ExecutablePath.h"

namespace halvo::VideoArchiveKeyProvisioning {

void provision(const Setup& setup) {
  const auto log = [&](const std::string& line) {
    if (setup.log) setup.log(line);
  };
  const auto name = setup.executable.filename().string();
  const auto paths = VideoArchiveKeyStore::trustedApplicationPaths(
      ExecutablePath::siblingDirectory(setup.executable), name.empty() ? VideoArchiveKeyStore::applicationName : std::string_view(name));
  bool isRotated = false;
  int generation = 0;
  try {
    const auto loaded = setup.store.loadOrRotate({.trustedApplicationPaths = paths, .includeSelf = false, .nowMs = setup.nowMs});
    isRotated = loaded.rotated;
    generation = loaded.generation;
  } catch (const std::exception& error) {
    return log(fmt::format("[lark] #987: could not provision the video archive key: {}", error.what()));
  }
  if (isRotated) {
    log(fmt::format("[lark] #987: rotated the video archive's encryption key to generation {} (previous generation's ACL no longer matched — "
                    "a signing change, most likely)",
                    generation));
    if (setup.recordKeyRotated) setup.recordKeyRotated(fmt::format("new key created (generation {})", generation), 1);
  } else if (generation == 1) {
    log("[lark] #987: video archive key ready");
  }
}

}  // namespace halvo::VideoArchiveKeyProvisioning
