#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The local models there are: each name means exactly two files, pinned by size and digest.
namespace halvo::LocalModelStore {

struct Artifact {
  std::string fileName = {};
  std::string url = {};
  std::string sha256 = {};  ///< 64 lower-case hexadecimal digits
  std::int64_t bytes = 0;
  bool operator==(const Artifact&) const = default;
};

struct Manifest {
  std::string model = {};
  Artifact weights = {};
  Artifact projector = {};  ///< what turns a picture into tokens

  /// In the order they are fetched and verified.
  std::array<const Artifact*, 2> artifacts() const& { return {&weights, &projector}; }
  std::array<const Artifact*, 2> artifacts() const&& = delete;
  std::int64_t totalBytes() const { return weights.bytes + projector.bytes; }
  bool operator==(const Manifest&) const = default;
};

/// The catalogue, largest model first. A URL is `downloadBase` and the file's path there.
std::vector<Manifest> manifests(std::string_view downloadBase = {});
/// The manifest of a model by any spelling of its name (`ModelProvisioning::modelNameMatches`); absent for a model we don't know.
std::optional<Manifest> manifest(std::string_view name, std::string_view downloadBase = {});

}  // namespace halvo::LocalModelStore
