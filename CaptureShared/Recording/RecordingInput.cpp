#include "CaptureShared/Recording/RecordingInput.h"

#include <stdexcept>
#include <utility>

#include <fcntl.h>

namespace halvo {

RecordingInput::RecordingInput(std::filesystem::path recording, const VideoDecryption::KeyForGeneration& keyForGeneration)
    : recording_(std::move(recording)) {
  if (VideoEncryptionFormat::isEncrypted(recording_)) key_.emplace(keyForGeneration(VideoEncryptionFormat::peekHeaderGeneration(recording_)));
}

std::vector<std::string> RecordingInput::words() const {
  if (key_) return {"-f", "matroska", "-i", "pipe:0"};
  return {"-i", std::filesystem::absolute(recording_).string()};  // with its slash it is neither an option nor a protocol
}

FFmpegRun::Feed RecordingInput::feed() {
  if (!key_) return {};
  return [this] { return next(); };
}

std::optional<std::string_view> RecordingInput::next() {
  if (!decryptor_) {
    file_ = FileHandle(::open(recording_.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file_) throw std::runtime_error("could not open " + recording_.string() + " for reading");
    decryptor_.emplace(*key_, file_.fd());
  }
  return decryptor_->readChunk();
}

}  // namespace halvo
