#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

#include "CaptureShared/Foundation/Digest.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Net/HTTPTransport.h"
#include "CaptureShared/Provisioning/ModelCatalogue.h"

namespace halvo {

/// The partial file of one artifact while a request fills it: what is written is hashed, so that the end needs no second reading.
class StreamingWriter {
 public:
  using Artifact = LocalModelStore::Artifact;

  struct Setup {
    const Artifact& artifact;
    std::filesystem::path partial = {};
    std::int64_t granularity = 0;  ///< bytes between two calls of `onWritten`
    std::function<void(std::int64_t written)> onWritten = {};
    std::function<void(std::int64_t read)> onRead = {};  ///< while what is there already is hashed
  };

  /// Opens the partial file, or makes it 0600, and hashes what is in it. Throws `InstallError` (fileSystem) and `Cancelled`.
  StreamingWriter(Setup setup, const std::stop_token& stop);

  std::int64_t written() const { return written_; }
  /// "bytes=N-" for a file that has N bytes; absent for an empty one.
  std::optional<std::string> rangeHeader() const;

  /// The head of a 2xx answer: what follows goes on where the file ends, or begins it anew. False when the answer begins elsewhere, and
  /// then nothing was changed. Throws `InstallError` for another status and for a length that can't end at the artifact's size.
  bool begin(const HTTPResponse& head);
  /// A piece of the body. Throws `InstallError`: sizeMismatch for a byte too many, and then the file is gone, or fileSystem.
  void take(std::string_view piece);

  /// The whole file is here and right: it is on the disk when this returns. Throws `InstallError`; a file with the wrong digest is gone.
  FileIdentity finish();

 private:
  Setup setup_;
  FileHandle handle_;
  Digest::SHA256 hasher_;
  std::int64_t written_ = 0, lastReported_ = 0;
};

/// The first byte's place in a "Content-Range: bytes 5-9/10" value; absent for any other text.
std::optional<std::int64_t> contentRangeStart(std::string_view value);

}  // namespace halvo
