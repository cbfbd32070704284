#include "app/ArchiveKey.h"

#include <cstdio>
#include <exception>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/ExecutablePath.h"
#include "CaptureShared/Recording/Supervision/CaptureFaultStore.h"
#include "CaptureShared/Recording/VideoArchiveKeyProvisioning.h"
#include "Platform/Linux/LinuxArchiveKeyBackend.h"

namespace halvo::ArchiveKey {

void provision() {
  const LogSink log = [](const std::string& line) { std::fprintf(stderr, "%s\n", line.c_str()); };
  try {
    const auto environment = processEnvironment();
    auto secrets = LinuxArchiveKeyBackend::forAccount(environment);
    const auto nowMs = Clock::system().nowMs();
    // The application by its own name, whichever program asks.
    const auto application = ExecutablePath::siblingDirectory(ExecutablePath::resolveSelf()) / VideoArchiveKeyStore::applicationName;
    VideoArchiveKeyProvisioning::provision({.store = VideoArchiveKeyStore(secrets),
                                            .executable = application,
                                            .nowMs = nowMs,
                                            .log = log,
                                            .recordKeyRotated = [&](const std::string& detail, int consecutiveFailures) {
                                              CaptureFaultStore::recordDirectly({.kind = CaptureFault::Kind::recordingKeyRotated,
                                                                                 .detail = detail,
                                                                                 .consecutiveFailures = consecutiveFailures,
                                                                                 .nowMs = nowMs,
                                                                                 .file = CaptureFaultStore::path(environment),
                                                                                 .log = log});
                                            }});
  } catch (const std::exception& error) {
    log(std::string("no key for recordings: ") + error.what());
  }
}

}  // namespace halvo::ArchiveKey
