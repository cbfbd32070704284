#include "CaptureShared/Recording/VideoContainerBridge.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include "CaptureShared/Foundation/FFmpegResolver.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/UUID.h"
#include "CaptureShared/Foundation/UserFolders.h"
#include "CaptureShared/Recording/FFmpegRun.h"
#include "CaptureShared/Recording/RecordingInput.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using BridgeError = VideoContainerBridge::BridgeError;

bool isNative(const fs::path& source) {
  const auto extension = source.extension().string();
  const auto lowered = Text::lower(std::string_view(extension).substr(extension.empty() ? 0 : 1));
  const auto& native = VideoContainerBridge::nativeExtensions;
  return std::find(native.begin(), native.end(), lowered) != native.end();
}

bool isThere(const fs::path& file) {
  std::error_code ignored;
  return fs::exists(file, ignored);
}

/// A file under a name of its own, 0600, removed unless it is published.
class Draft {
 public:
  explicit Draft(fs::path path) : path_(std::move(path)) {
    const FileHandle made(::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!made) throw std::system_error(errno, std::generic_category(), path_.string());
  }
  Draft(const Draft&) = delete;
  Draft& operator=(const Draft&) = delete;
  ~Draft() {
    if (!path_.empty()) ::unlink(path_.c_str());
  }
  const fs::path& path() const { return path_; }
  /// 0, or the error's number.
  int publish(const fs::path& as) {
    if (::rename(path_.c_str(), as.c_str()) != 0) return errno;
    path_.clear();
    return 0;
  }

 private:
  fs::path path_;
};

std::vector<std::string> arguments(const RecordingInput& input, const fs::path& output) {
  std::vector<std::string> words{"-nostdin", "-v", "error"};
  for (auto& word : input.words()) words.push_back(std::move(word));
  words.insert(words.end(), {"-c", "copy", "-movflags", "+faststart", "-y", output.string()});
  return words;
}

/// The last two lines that ffmpeg said.
std::string detailOf(const FFmpegRun::Outcome& outcome) {
  const auto text = Text::scrubbed(outcome.standardError);
  auto lines = Text::split(text, '\n');
  std::erase(lines, std::string_view());
  if (lines.empty()) return fmt::format("ffmpeg exit {}", outcome.exitStatus);
  const auto last = lines.end() - std::min<std::ptrdiff_t>(2, std::ssize(lines));
  return Text::join({last, lines.end()}, "; ");
}

}  // namespace

BridgeError BridgeError::sourceMissing(const fs::path& path) { return {Kind::sourceMissing, "No video file at " + path.string() + "."}; }
BridgeError BridgeError::ffmpegUnavailable(const std::string& reason) { return {Kind::ffmpegUnavailable, reason}; }
BridgeError BridgeError::remuxFailed(const std::string& file, const std::string& detail) {
  return {Kind::remuxFailed, "Couldn't read " + file + " into a playable container: " + detail};
}
BridgeError BridgeError::keyUnavailable(const std::string& reason) { return {Kind::keyUnavailable, "Couldn't decrypt: " + reason}; }

fs::path VideoContainerBridge::remuxCacheDir(int display) const {
  return UserFolders::systemTemp(environment_) / "LarkVideoRemux" / fmt::format("display-{}", display);
}

fs::path VideoContainerBridge::cachedURL(const fs::path& source, int display) const {
  return remuxCacheDir(display) / (source.filename().string() + ".mp4");
}

bool VideoContainerBridge::needsRemux(const fs::path& source, int display) const {
  return !isNative(source) && !isThere(cachedURL(source, display));
}

fs::path VideoContainerBridge::playableURL(const fs::path& source, int display, const std::stop_token& stop) const {
  if (isNative(source)) return source;
  if (!isThere(source)) throw BridgeError::sourceMissing(source);
  auto cached = cachedURL(source, display);
  if (!isThere(cached)) remux(source, cached, stop);
  return cached;
}

void VideoContainerBridge::remux(const fs::path& source, const fs::path& cached, const std::stop_token& stop) const {
  const auto file = source.filename().string();
  fs::path ffmpeg;
  try {
    ffmpeg = FFmpegResolver::resolve(environment_);
  } catch (const FFmpegResolver::NotFound& error) {
    throw BridgeError::ffmpegUnavailable(error.what());
  }
  makePrivateFolder(cached.parent_path().parent_path());
  makePrivateFolder(cached.parent_path());
  std::optional<RecordingInput> input;
  try {
    input.emplace(source, keyForGeneration_);
  } catch (const std::exception& error) {
    throw BridgeError::keyUnavailable(error.what());
  }

  Draft draft(cached.parent_path() / (".remux-" + newUUID() + ".mp4"));
  FFmpegRun::Outcome outcome;
  try {
    outcome = FFmpegRun::run(ffmpeg, arguments(*input, draft.path()), input->feed(), stop);
  } catch (const std::system_error& error) {
    throw BridgeError::remuxFailed(file, "couldn't launch ffmpeg: " + error.code().message());
  }
  if (outcome.feedFailure) throw BridgeError::keyUnavailable(*outcome.feedFailure);
  if (outcome.exitStatus != 0) throw BridgeError::remuxFailed(file, detailOf(outcome));
  if (const int code = draft.publish(cached); code != 0 && !isThere(cached))
    throw BridgeError::remuxFailed(file, "couldn't publish the remuxed copy: " + errnoText(code));
}

}  // namespace halvo
