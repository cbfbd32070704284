#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <variant>
#include <vector>

#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Net/HTTPTransport.h"
#include "CaptureShared/Provisioning/LocalModelInstaller.h"
#include "Platform/Machine/Machine.h"

namespace halvo {

/// The local models of this account: what is here, and how they come and go. What it does ends in words for a person. One call at a time an
/// object.
class ModelShelf {
 public:
  struct Setup {
    Environment environment = {};
    const Machine& machine;
    HTTPTransport& transport;
    std::int64_t progressGranularityBytes = 1 << 20;
  };
  explicit ModelShelf(Setup setup);

  struct Done {
    std::vector<std::string> lines;
  };
  struct Stopped {};  ///< by its stop token; what came so far is kept
  struct Failed {
    std::string why;
  };
  using Outcome = std::variant<Done, Stopped, Failed>;
  using OnProgress = LocalModelInstaller::OnProgress;

  /// Names are any spelling of a catalogue's name.
  Outcome install(const std::string& model, const OnProgress& onProgress, const std::stop_token& stop) const;
  /// Reads both files and checks them.
  Outcome verify(const std::string& model, const OnProgress& onProgress, const std::stop_token& stop) const;
  Outcome remove(const std::string& model) const;
  /// Makes it the one that judges, in `config.json`: it holds for programs that start from then on.
  Outcome choose(const std::string& model) const;

  /// The one that judges: of the environment, unless the file has said otherwise since this program started.
  std::string configured() const;
  /// The one to install when nobody names one: the configured one, else what this machine is recommended.
  std::optional<std::string> wanted() const;
  std::optional<std::uint64_t> memoryBytes() const { return memory_; }
  const std::filesystem::path& directory() const { return directory_; }
  /// Bytes that an install would still bring.
  std::int64_t bytesRemaining(const LocalModelStore::Manifest& manifest) const;

 private:
  LocalModelInstaller installer() const;

  Setup setup_;
  std::filesystem::path directory_;
  std::optional<std::uint64_t> memory_;
};

}  // namespace halvo
