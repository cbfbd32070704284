#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "CaptureShared/Foundation/Environment.h"

namespace halvo {

/// The one way the inference server is started: where it listens, what it serves, and nothing that the user's shell could change.
struct LlamaServerLaunch {
  struct UnixSocket {
    std::filesystem::path path;
    bool operator==(const UnixSocket&) const = default;
  };
  struct TCP {
    std::string host;
    int port = 0;
    bool operator==(const TCP&) const = default;
  };
  using Listen = std::variant<UnixSocket, TCP>;

  std::filesystem::path serverBinary = {}, weights = {}, projector = {};
  Listen listen = {};
  std::string alias = {};  ///< the model name that clients ask for
  int contextLength = 0;   ///< tokens
  int sleepIdleSeconds = 0;

  /// The command line behind the program's name.
  std::vector<std::string> arguments() const;
  static const std::vector<std::string>& samplingArguments();

  /// What is set for the server, whatever was inherited.
  static const Environment& environment();
  /// `inheriting` without every key that begins with "LLAMA_" or "GGML_", and with `environment` over it.
  static Environment processEnvironment(const Environment& inheriting);
  /// The same as sorted "KEY=VALUE" texts.
  static std::vector<std::string> execEnvironment(const Environment& inheriting);

  /// Where a server listens for clients that use this base URL: the socket of a "http+unix" one, else its host, 127.0.0.1 without one, and
  /// its port, 80 without one.
  static Listen listenFrom(std::string_view url);

  /// 32,768 tokens with 16 GiB of memory and more, else 16,384: the gate's one message needs that much.
  static int contextLengthFor(std::optional<std::uint64_t> physicalMemoryBytes);

  /// Names the server's program in place of a search. Read from the environment only.
  static constexpr const char* binaryEnvVar = "AMBITCAP_LLAMA_SERVER";
  /// The program that `binaryEnvVar` names, and no other when it names one; else the first "llama-server" in an absolute folder of PATH.
  static std::optional<std::filesystem::path> findBinary(const Environment& environment);
};

}  // namespace halvo
