#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>

#include "AmbitudeCore/Backends/Server/LlamaServerLaunch.h"
#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Foundation/Log.h"
#include "CaptureShared/Provisioning/LlamaServerStatus.h"
#include "CaptureShared/Provisioning/ModelCatalogue.h"

namespace halvo {

/// Everything between the start of the model's program and the server it becomes. The model that was chosen is served or none: nothing ever
/// takes its place.
class LocalModelStart {
 public:
  struct World {
    Environment environment = {};
    std::string model = {};
    std::optional<LocalModelStore::Manifest> manifest = {};  ///< of that model; absent: there is no download for it
    std::filesystem::path modelsDirectory = {};
    std::filesystem::path statusFile = {};
    std::string baseURL = {};  ///< where clients will ask
    std::optional<std::uint64_t> physicalMemoryBytes = {};
    std::function<std::int64_t()> nowMs;
    LogSink log;
  };
  explicit LocalModelStart(World world) : world_(std::move(world)) {}

  /// Checks the files, hashing those that were never verified, writes `starting`, and readies the socket. Absent when the server must not
  /// start: the reason is then in the status file and the log. Throws `Cancelled`.
  std::optional<LlamaServerLaunch> prepare(const std::stop_token& stop);

  /// Becomes the server; comes back only when that fails, which is then told.
  void exec(const LlamaServerLaunch& launch);

  /// Writes and logs how far it came.
  void tell(LlamaServerStatus::State state, const std::string& message);

 private:
  bool verify(const std::stop_token& stop);
  bool isSocketReady(const LlamaServerLaunch::Listen& listen);

  World world_;
};

}  // namespace halvo
