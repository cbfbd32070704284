#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Foundation/RawValue.h"
#include "Platform/Machine/Machine.h"

/// Which local model fits which machine.
namespace halvo::ModelProvisioning {

enum class Tier { small, mid, full };

struct KnownModel {
  std::string name = {};
  std::string role = {};  ///< shown to the person
  Tier tier = Tier::full;
  std::int64_t approximateResidentBytes = 0;  ///< while it runs
  std::int64_t totalBytes = 0;                ///< of its two files
};

inline constexpr std::uint64_t minimumViableMemoryBytes = 0x180000000;  ///< 6 GiB: below it no model is recommended
inline constexpr std::int64_t osOverheadBytes = 0x80000000;             ///< 2 GiB for everything else
inline constexpr std::int64_t diskHeadroomBytes = 2'000'000'000;        ///< left free behind a download

namespace PhysicalMemory {
inline constexpr std::uint64_t eightGB = std::uint64_t{8} << 30, sixteenGB = std::uint64_t{16} << 30,
                               fortyEightGB = std::uint64_t{48} << 30;
}  // namespace PhysicalMemory

/// The full model first.
std::vector<KnownModel> knownModels();
std::optional<KnownModel> known(std::string_view name);
/// The name of the model for a machine: small below 16 GiB, mid below 48 GiB, full from there on; absent below `minimumViableMemoryBytes`.
std::optional<std::string> recommendedDefault(std::uint64_t physicalMemoryBytes);

/// Whether two names mean one model: a name without a tag has ":latest", and a path before the last "/" does not count.
bool modelNameMatches(std::string_view a, std::string_view b);

bool modelFitsAvailableMemory(std::uint64_t physicalBytes, const KnownModel& model);
/// Absent for a model that fits or that we don't know.
std::optional<std::string> memoryWarning(std::string_view name, std::uint64_t physicalMemoryBytes);

/// The path itself when it exists, else the nearest folder above it that does.
std::filesystem::path nearestExistingAncestor(const std::filesystem::path& of);
/// Free bytes on the volume where `at` is or will be; absent when the machine can't tell.
std::optional<std::int64_t> availableDiskBytes(const std::filesystem::path& at, const Machine& machine);
/// A path that exists on the volume the models are, or will be, on.
std::filesystem::path likelyStoreVolume(const Environment& environment);
/// An unknown `available` passes: the download tells soon enough.
bool hasSufficientDiskSpace(std::int64_t requiredBytes, std::optional<std::int64_t> available);
std::string insufficientDiskSpaceMessage(std::string_view model, std::int64_t requiredBytes, std::int64_t available);

/// "7.15 GB" from one GB upward, "175 MB" below; decimal units.
std::string humanBytes(std::int64_t bytes);

}  // namespace halvo::ModelProvisioning

namespace halvo {

template <>
struct RawValues<ModelProvisioning::Tier> {
  static constexpr std::array table{std::pair{ModelProvisioning::Tier::small, "small"}, std::pair{ModelProvisioning::Tier::mid, "mid"},
                                    std::pair{ModelProvisioning::Tier::full, "full"}};
};

}  // namespace halvo
