#include <gtest/gtest.h>

#include "CaptureShared/Foundation/FFmpegResolver.h"
#include "CaptureShared/Recording/Supervision/CapturerExit.h"
#include "CaptureShared/Recording/Supervision/RespawnGate.h"
#include "CaptureShared/Recording/VideoArchiveKeyStore.h"
#include "Platform/Screen/ScreenCapture.h"

namespace halvo {
namespace {

using Kind = CaptureFault::Kind;
using Decision = RespawnGate::Decision;

TEST(CapturerExit, codes) {
  using KeyError = VideoArchiveKeyStore::KeyError;
  const auto code = [](const auto& error) { return CapturerExit::startupCode(error).value_or(0); };
  EXPECT_EQ(code(FFmpegResolver::NotFound()), 72);
  EXPECT_EQ(code(KeyError::missing()), 73);
  EXPECT_EQ(code(KeyError::locked()), 76);
  for (const auto& error : {KeyError::unreadable(""), KeyError::aclMismatch(""), KeyError::itemAlreadyExists(), KeyError::noWriterInACL()})
    EXPECT_EQ(code(error), 71) << error.what();
  EXPECT_EQ(code(ScreenCaptureError(ScreenCaptureError::Kind::refused, "")), 77);
  EXPECT_EQ(code(ScreenCaptureError(ScreenCaptureError::Kind::noDisplay, "")), 69);
  EXPECT_EQ(code(ScreenCaptureError(ScreenCaptureError::Kind::timedOut, "")), 0);
  EXPECT_TRUE(CapturerExit::isScreenRecordingDenied("com.apple.ScreenCaptureKit.SCStreamErrorDomain", -3801));
}

TEST(RespawnGate, noteChildExit) {
  const std::optional<double> unknown;
  const Decision plain{.delay = 5};
  const auto gated = [](std::optional<Kind> fault = {}, double delay = 60) { return Decision{delay, true, fault}; };
  const struct {
    const char* name;
    int rapidBefore;
    std::int32_t code;
    std::optional<double> ranFor;
    bool isLocked;
    Decision want;
    int rapidAfter;
    bool noDisplays;
  } cases[] = {{"no displays", 4, 69, 1, false, gated(), 0, true},
               {"no displays at the lock screen", 4, 69, 1, true, gated({}, 30), 0, true},
               {"no ffmpeg", 9, 72, unknown, false, gated(), 0, false},
               {"key unreadable", 4, 71, 1, false, gated(Kind::recordingKeyUnavailable), 0, false},
               {"key locked, screen locked", 4, 76, 1, true, gated(Kind::recordingKeyUnavailable, 30), 0, false},
               {"disk full", 4, 75, 1, false, gated(Kind::dataRootFull), 0, false},
               {"sink failed", 0, 74, 1, false, {.delay = 5, .fault = Kind::videoSinkFailed}, 1, false},
               {"sink failed at the threshold", 4, 74, 1, false, gated(Kind::videoSinkFailed, 5), 5, false},
               {"exit 70 is a crash", 0, 70, 1, false, plain, 1, false},
               {"at the threshold, locked or not", 4, 139, 59.9, true, gated(Kind::crashLooping, 5), 5, false},
               {"under the ceiling", 9, 1, 1, false, gated(Kind::crashLooping, 160), 10, false},
               {"the ceiling", 10, 1, 1, false, gated(Kind::crashLooping, 300), 11, false},
               {"exactly healthy", 20, 1, 60, false, plain, 0, false},
               {"unknown length changes nothing", 4, 1, unknown, false, plain, 4, false},
               {"unknown length beyond the threshold", 6, 1, unknown, false, gated(Kind::crashLooping, 10), 6, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    RespawnGate gate{RespawnGate::Config()};
    gate.noteChildExit(69, 1);
    for (int i = 0; i < c.rapidBefore; ++i) gate.noteChildExit(1, 1);
    if (c.isLocked) gate.noteScreenLocked();
    EXPECT_EQ(gate.noteChildExit(c.code, c.ranFor), c.want);
    EXPECT_EQ(gate.rapidFailureCount(), c.rapidAfter);
    EXPECT_EQ(gate.hasNoDisplaysConfirmed(), c.noDisplays);
    EXPECT_EQ(gate.isGated(), c.want.gated);
    EXPECT_EQ(gate.noteChildHealthy(), c.rapidAfter > 0);
    EXPECT_FALSE(gate.noteChildHealthy());
    gate.noteChildExit(69, 1);
    gate.noteScreenUnlocked();
    EXPECT_EQ(gate.noteLaunchFailure(), plain);
    EXPECT_FALSE(gate.hasNoDisplaysConfirmed() || gate.isGated() || gate.hasScreenLockSignal());
  }
}

}  // namespace
}  // namespace halvo
