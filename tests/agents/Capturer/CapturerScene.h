#pragma once

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Recording/VideoArchiveKeyStore.h"
#include "Platform/Linux/LinuxArchiveKeyBackend.h"
#include "agents/Capturer/CapturerLoop.h"
#include "tests/agents/Capturer/Footage.h"
#include "tests/support/ChildProcess.h"

namespace halvo::test {

/// What the loop is turned with, on a clock of its own.
struct CapturerScene {
  CapturerLoop::Ports ports(DesktopProbes& probes, ScreenCapture& screen, const std::filesystem::path& root) {
    std::filesystem::create_directories(root / "video");
    return {.probes = probes,
            .screen = screen,
            .clock = {.nowMs = [this] { return nowMs; }, .wait = [](double, const std::stop_token&) {}},
            .root = root,
            .key = Footage::key(),
            .ffmpeg = "/usr/bin/ffmpeg",
            .denylist = Denylist::fromEnvironment({})};
  }
  void turns(CapturerLoop& loop, int count) {
    for (int i = 0; i < count; ++i, nowMs += 500) loop.turn({});
  }

  TemporaryFolder folder;
  std::int64_t nowMs = Clock::system().nowMs();
};

/// A home for the programs themselves.
struct CapturerHome {
  CapturerHome() {
    namespace fs = std::filesystem;
    for (const auto* name : {"data", "home", "tmp"}) {
      fs::create_directory(folder.path() / name);
      fs::permissions(folder.path() / name, fs::perms::owner_all);
    }
  }
  Environment environment(const std::string& display) const {
    return programEnvironment(folder.path() / "home", root, {{"DISPLAY", display}, {"TMPDIR", folder.path() / "tmp"}});
  }
  /// A key that the recorder and the command line may read.
  SymmetricKey makeKey() const {
    auto secrets = LinuxArchiveKeyBackend::forAccount(environment(""));
    const std::filesystem::path bin(HALVO_BIN);
    const std::vector readers{std::filesystem::canonical(bin / "Capturer"), std::filesystem::canonical(bin / "halvo")};
    return VideoArchiveKeyStore(secrets).loadOrRotate({.trustedApplicationPaths = readers, .includeSelf = true, .nowMs = 1}).key;
  }
  bool hasRecorded(const Footage& footage, std::size_t rows) const {
    return std::filesystem::exists(root / "video/display-0/frame_timestamps.csv") && footage.rows().size() >= rows;
  }

  TemporaryFolder folder;
  std::filesystem::path root = folder.path() / "data";
};

}  // namespace halvo::test
