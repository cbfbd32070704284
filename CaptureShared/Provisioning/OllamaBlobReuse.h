#pragma once

#include <filesystem>
#include <functional>
#include <stop_token>
#include <variant>

#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Provisioning/ModelCatalogue.h"

/// Another installation on this machine may have the very file: it keeps its files by their digest.
namespace halvo::OllamaBlobReuse {

namespace fs = std::filesystem;

/// OLLAMA_MODELS when it is not blank, else ".ollama/models" under the home folder.
fs::path modelsDirectory(const Environment& environment);

/// The file of the artifact's digest, whatever is in it. `in` is the other installation's models folder.
fs::path candidate(const LocalModelStore::Artifact& artifact, const fs::path& in);
/// True for a regular file of the right size there.
bool candidateExists(const LocalModelStore::Artifact& artifact, const fs::path& in);
/// True when it also lies on the volume of the folder that is installed into: a hard link takes no space.
bool candidateNeedsNoNewSpace(const LocalModelStore::Artifact& artifact, const fs::path& in, const fs::path& installingInto);

enum class LinkMethod { hardlink, copy };
struct Reused {
  LinkMethod method = LinkMethod::hardlink;
  bool operator==(const Reused&) const = default;
};
struct NoCandidate {
  bool operator==(const NoCandidate&) const = default;
};
struct HashMismatch {
  bool operator==(const HashMismatch&) const = default;
};
using Outcome = std::variant<Reused, NoCandidate, HashMismatch>;

/// How a file gets a second name or a second body. Both throw `std::system_error`; the destination must not exist.
struct FileOperations {
  std::function<void(const fs::path&source, const fs::path&destination)> link, copy;
  /// A copy is 0600 and ends with `Cancelled` on a stop.
  static FileOperations real(const std::stop_token& stop = {});
};

/// Places the candidate beside the artifact's path, checks what was placed, and gives it its name and its stamp. A wrong candidate is left
/// where it is. Throws `Cancelled`; every other failure is `NoCandidate`, and nothing is left of it.
Outcome reuse(const LocalModelStore::Artifact& artifact, const fs::path& into, const fs::path& ollamaModelsDirectory,
              const FileOperations& fileOperations, const std::stop_token& stop);

}  // namespace halvo::OllamaBlobReuse
