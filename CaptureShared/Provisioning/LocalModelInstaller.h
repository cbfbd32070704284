#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <variant>

#include "CaptureShared/Net/HTTPTransport.h"
#include "CaptureShared/Provisioning/InstallError.h"
#include "CaptureShared/Provisioning/ModelCatalogue.h"
#include "CaptureShared/Provisioning/OllamaBlobReuse.h"
#include "CaptureShared/Provisioning/StreamingWriter.h"

namespace halvo {

/// Brings a model's two files onto the disk. A file has its final name only when it is whole and right; until then it is a ".partial" that
/// the next install goes on with.
class LocalModelInstaller {
 public:
  using Manifest = LocalModelStore::Manifest;
  using Artifact = LocalModelStore::Artifact;

  static constexpr std::string_view partialSuffix = ".partial";
  static constexpr std::int64_t defaultGranularityBytes = 8 << 20;
  static constexpr double idleTimeoutSec = 60;  ///< the longest silence of a download
  static constexpr int mostRedirects = 5;

  struct Setup {
    std::filesystem::path directory = {};  ///< of the models; made 0700 when it is missing
    std::filesystem::path ollamaModelsDirectory = {};
    HTTPTransport& transport;
    std::int64_t progressGranularityBytes = defaultGranularityBytes;
    std::optional<OllamaBlobReuse::FileOperations> fileOperations = {};  ///< absent: the real ones
    double timeoutSec = idleTimeoutSec;
  };
  explicit LocalModelInstaller(Setup setup) : setup_(std::move(setup)) {}

  struct Checking {
    std::string file;
    bool operator==(const Checking&) const = default;
  };
  struct Downloading {
    std::string file;
    bool operator==(const Downloading&) const = default;
  };
  using Stage = std::variant<Checking, Downloading>;
  struct Progress {
    Stage stage = {};
    std::int64_t completedBytes = 0;  ///< of both files together
    std::int64_t totalBytes = 0;
  };
  using OnProgress = std::function<void(const Progress&)>;

  /// Weights, then projector: a stamped file is done, a whole one is checked, one that another installation has is borrowed, and the rest
  /// is downloaded. One install at a time per folder. Throws `InstallError` and `Cancelled`; what came so far stays as a partial.
  void install(const Manifest& manifest, const OnProgress& onProgress, const std::stop_token& stop = {});

  /// Bytes that an install would still write, what is there already and what can be linked not counted.
  std::int64_t bytesRemaining(const Manifest& manifest) const;
  /// The words for a disk that is too small; absent when there is room, or nobody knows. `required`: `bytesRemaining` unless given.
  std::optional<std::string> diskShortfall(const Manifest& manifest, std::optional<std::int64_t> availableBytes,
                                           std::optional<std::int64_t> required = {}) const;

  static std::filesystem::path partialPath(const Artifact& artifact, const std::filesystem::path& directory);

 private:
  using Report = std::function<void(Stage, std::int64_t)>;

  void installOne(const Artifact& artifact, const Report& report, const std::stop_token& stop);
  bool isThereAlready(const Artifact& artifact, const Report& report, const std::stop_token& stop);
  void download(const Artifact& artifact, const Report& report, const std::stop_token& stop);

  struct RangeNotSatisfiable {};
  struct Completed {};
  using FetchOutcome = std::variant<Completed, RangeNotSatisfiable>;
  FetchOutcome fetch(const Artifact& artifact, StreamingWriter& writer, const std::stop_token& stop);

  Setup setup_;
};

}  // namespace halvo
