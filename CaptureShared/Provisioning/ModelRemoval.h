#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "CaptureShared/Provisioning/ModelCatalogue.h"

/// Taking a model off the disk: planned first, so that what goes can be shown.
namespace halvo::ModelRemoval {

struct Item {
  std::filesystem::path file = {};
  std::int64_t bytes = 0;
  bool operator==(const Item&) const = default;
};
struct Plan {
  std::vector<Item> items = {};
  std::vector<std::string> refusals = {};  ///< words for what stands in a file's place and is not ours to remove; then nothing goes
  std::int64_t bytes() const;
};
/// The model's two files, whole or partial, by name: regular files alone, and never what a link leads to.
Plan plan(const LocalModelStore::Manifest& manifest, const std::filesystem::path& directory);

/// Removes what is planned and then the stamps. Throws `std::system_error` at the first file that can't be removed, and
/// `std::runtime_error` while an install is at work there, or for a plan with refusals.
void apply(const Plan& plan, const LocalModelStore::Manifest& manifest, const std::filesystem::path& directory);

}  // namespace halvo::ModelRemoval
