#include "CaptureShared/Provisioning/ModelProvisioning.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Provisioning/LocalModelStore.h"

namespace halvo::ModelProvisioning {
namespace {

constexpr std::int64_t clipped(std::uint64_t bytes) {
  return static_cast<std::int64_t>(std::min(bytes, static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())));
}

KnownModel model(std::string_view name, std::string_view role, Tier tier, std::int64_t residentBytes) {
  const auto manifest = LocalModelStore::manifest(name);
  return {.name = std::string(name),
          .role = tr(role),
          .tier = tier,
          .approximateResidentBytes = residentBytes,
          .totalBytes = manifest ? manifest->totalBytes() : 0};
}

std::string canonical(std::string_view name) {
  if (const auto slash = name.rfind('/'); slash != std::string_view::npos) name.remove_prefix(slash + 1);
  return std::string(name) + (name.find(':') == std::string_view::npos ? ":latest" : "");
}

}  // namespace

std::vector<KnownModel> knownModels() {
  return {
      model("gemma4:12b-it-qat",
            trMark("The default on a Mac with plenty of memory. Best judgment; needs roughly 8 GB of memory while it runs."), Tier::full,
            8'000'000'000),
      model("gemma4:e4b-it-qat",
            trMark("Between the two: more capable than e2b, still memory-frugal relative to the 12b. Needs roughly 5.5 GB while it runs."),
            Tier::mid, 5'500'000'000),
      model("gemma4:e2b-it-qat",
            trMark("For a Mac with less memory. Smaller download AND smaller resident than the 12b. Needs roughly 3.7 GB while it runs."),
            Tier::small, 3'700'000'000)};
}

std::optional<KnownModel> known(std::string_view name) {
  for (auto& one : knownModels())
    if (modelNameMatches(one.name, name)) return std::move(one);
  return std::nullopt;
}

std::optional<std::string> recommendedDefault(std::uint64_t physicalMemoryBytes) {
  if (physicalMemoryBytes < minimumViableMemoryBytes) return std::nullopt;
  const auto tier = physicalMemoryBytes < PhysicalMemory::sixteenGB      ? Tier::small
                    : physicalMemoryBytes < PhysicalMemory::fortyEightGB ? Tier::mid
                                                                         : Tier::full;
  for (auto& one : knownModels())
    if (one.tier == tier) return std::move(one.name);
  return std::nullopt;
}

bool modelNameMatches(std::string_view a, std::string_view b) { return canonical(a) == canonical(b); }

bool modelFitsAvailableMemory(std::uint64_t physicalBytes, const KnownModel& model) {
  return clipped(physicalBytes) >= model.approximateResidentBytes + osOverheadBytes;
}

std::optional<std::string> memoryWarning(std::string_view name, std::uint64_t physicalMemoryBytes) {
  const auto model = known(name);
  if (!model || modelFitsAvailableMemory(physicalMemoryBytes, *model)) return std::nullopt;
  return tr("{} needs roughly {} of memory while it runs; this Mac has {}. It may fail to load or run very slowly.", name,
                     humanBytes(model->approximateResidentBytes), humanBytes(clipped(physicalMemoryBytes)));
}

std::filesystem::path nearestExistingAncestor(const std::filesystem::path& of) {
  auto path = of;
  std::error_code ignored;
  while (!std::filesystem::exists(path, ignored) && path != path.parent_path()) path = path.parent_path();
  return path;
}

std::optional<std::int64_t> availableDiskBytes(const std::filesystem::path& at, const Machine& machine) {
  const auto free = machine.freeBytes(nearestExistingAncestor(at));
  return free ? std::optional(clipped(*free)) : std::nullopt;
}

std::filesystem::path likelyStoreVolume(const Environment& environment) {
  return nearestExistingAncestor(LocalModelStore::modelsDirectory(environment));
}

bool hasSufficientDiskSpace(std::int64_t requiredBytes, std::optional<std::int64_t> available) {
  return !available || *available >= requiredBytes + diskHeadroomBytes;
}

std::string insufficientDiskSpaceMessage(std::string_view model, std::int64_t requiredBytes, std::int64_t available) {
  return tr(
      "{} is {} and this Mac has {} free. It needs at least {} free, so the disk isn't left full. Free up some space and try again.", model,
      humanBytes(requiredBytes), humanBytes(available), humanBytes(requiredBytes + diskHeadroomBytes));
}

std::string humanBytes(std::int64_t bytes) {
  constexpr std::int64_t gb = 1'000'000'000;
  constexpr double mb = 1e6;
  return bytes >= gb ? fmt::format("{:.2f} GB", static_cast<double>(bytes) / gb)
                     : fmt::format("{:.0f} MB", static_cast<double>(bytes) / mb);
}

}  // namespace halvo::ModelProvisioning
