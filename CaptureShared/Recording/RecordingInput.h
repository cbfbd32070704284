#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Recording/FFmpegRun.h"
#include "CaptureShared/Recording/VideoDecryption.h"
#include "CaptureShared/Recording/VideoStreamDecryptor.h"

namespace halvo {

/// A recording as ffmpeg's input: a sealed one goes, chunk by chunk in the clear, into its standard input; a plain one is named.
class RecordingInput {
 public:
  /// Throws what `keyForGeneration` throws; a plain recording asks for no key.
  RecordingInput(std::filesystem::path recording, const VideoDecryption::KeyForGeneration& keyForGeneration);
  RecordingInput(const RecordingInput&) = delete;
  RecordingInput& operator=(const RecordingInput&) = delete;

  /// ffmpeg's words for it.
  std::vector<std::string> words() const;
  /// What goes with them, valid as long as this is. The file is opened at the first piece. Throws `VideoEncryptionError` at a chunk that is
  /// damaged, `std::runtime_error` when the file can't be opened.
  FFmpegRun::Feed feed();

 private:
  std::optional<std::string_view> next();

  std::filesystem::path recording_;
  std::optional<SymmetricKey> key_;  ///< absent: it is plain
  FileHandle file_;
  std::optional<VideoStreamDecryptor> decryptor_;
};

}  // namespace halvo
