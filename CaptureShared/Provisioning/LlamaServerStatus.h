#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Foundation/RawValue.h"

namespace halvo {

/// How far the model's program came, kept in "llama-server-status.json" in the support folder. It is written before the program becomes the
/// server, so `starting` stays there while the server runs: whether it serves is asked of the server.
struct LlamaServerStatus {
  enum class State { starting, modelMissing, checksumMismatch, unknownModel, runtimeMissing, failed };
  State state = State::failed;
  std::string model = {};
  std::string message = {};  ///< why, for `failed`; details for the rest
  std::int64_t atMs = 0;     ///< since the epoch

  static constexpr std::string_view fileName = "llama-server-status.json";
  /// The name the service manager knows the program by.
  static constexpr std::string_view agentLabel = "com.brindle.lark.llama.direct";

  static std::filesystem::path url(const Environment& environment);
  /// Absent for a file that is missing or is no status.
  static std::optional<LlamaServerStatus> read(const std::filesystem::path& from);
  static std::optional<LlamaServerStatus> decode(std::string_view json);
  std::string encode() const;
  /// Replaces the file. Throws `std::system_error`.
  void write(const std::filesystem::path& to) const;

  /// What a person is told.
  std::string healthMessage() const;

  bool operator==(const LlamaServerStatus&) const = default;
};

template <>
struct RawValues<LlamaServerStatus::State> {
  using State = LlamaServerStatus::State;
  static constexpr std::array table{std::pair{State::starting, "starting"},
                                    std::pair{State::modelMissing, "modelMissing"},
                                    std::pair{State::checksumMismatch, "checksumMismatch"},
                                    std::pair{State::unknownModel, "unknownModel"},
                                    std::pair{State::runtimeMissing, "runtimeMissing"},
                                    std::pair{State::failed, "failed"}};
};

}  // namespace halvo
