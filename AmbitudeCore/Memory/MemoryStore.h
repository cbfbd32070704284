#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "CaptureShared/Records/PeriodDigest.h"
#include "CaptureShared/Records/StandingMemory.h"

namespace halvo {

class MemoryStoreError : public std::runtime_error {
 public:
  enum class Kind {
    digestAlreadyExists,  ///< a digest is written once; the first stays as it is
    unreadable            ///< a file that is there is no memory file: set right by a person, never passed over
  };
  static MemoryStoreError digestAlreadyExists(std::int64_t periodStartTsMs);
  static MemoryStoreError unreadable(const std::filesystem::path& file);

  Kind kind() const { return kind_; }

 private:
  MemoryStoreError(Kind kind, const std::string& text) : std::runtime_error(text), kind_(kind) {}
  Kind kind_;
};

/// The files under `memory/`: one immutable digest a period, and what was made of them. Files appear whole or not at all. Everything throws
/// `MemoryStoreError`, and `std::system_error` for what the disk says; a missing file is no error. Writers make `memory/` and its
/// sub-folder, never the data root.
namespace MemoryStore {

std::filesystem::path folder(const std::filesystem::path& dataRoot);         ///< `memory/`
std::filesystem::path digestsFolder(const std::filesystem::path& dataRoot);  ///< `memory/period-digests/`
std::filesystem::path standingURL(const std::filesystem::path& dataRoot);    ///< `memory/standing-memory.json`
std::filesystem::path sequentialURL(const std::filesystem::path& dataRoot);  ///< `memory/standing-memory.sequential.json`
std::filesystem::path digestURL(std::int64_t periodStartTsMs, const std::filesystem::path& dataRoot);

/// Sorted by their period's start. One file that does not decode throws: silence would lose periods.
std::vector<PeriodDigest> readAllDigests(const std::filesystem::path& dataRoot);
void writeDigest(const PeriodDigest& digest, const std::filesystem::path& dataRoot);

/// Absent when there is none.
std::optional<StandingMemory> readStanding(const std::filesystem::path& dataRoot);
void writeStanding(const StandingMemory& memory, const std::filesystem::path& dataRoot);
std::optional<SequentialMemoryState> readSequentialState(const std::filesystem::path& dataRoot);
void writeSequentialState(const SequentialMemoryState& state, const std::filesystem::path& dataRoot);

/// Removes the scratch files that a killed writer left. Only for who holds the dream lock; a failure leaves them for the next time.
void removeScraps(const std::filesystem::path& dataRoot);

}  // namespace MemoryStore
}  // namespace halvo
