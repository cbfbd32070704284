#include "CaptureShared/Provisioning/ModelRemoval.h"

#include <stdexcept>
#include <system_error>

#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Provisioning/LocalModelInstaller.h"
#include "CaptureShared/Provisioning/LocalModelStore.h"
#include "CaptureShared/Provisioning/ModelsFolderLock.h"

namespace halvo::ModelRemoval {

namespace fs = std::filesystem;

std::int64_t Plan::bytes() const {
  std::int64_t sum = 0;
  for (const auto& item : items) sum += item.bytes;
  return sum;
}

Plan plan(const LocalModelStore::Manifest& manifest, const fs::path& directory) {
  Plan found;
  for (const auto* artifact : manifest.artifacts())
    for (const auto& file : {LocalModelStore::path(*artifact, directory), LocalModelInstaller::partialPath(*artifact, directory)}) {
      std::error_code error;
      const auto status = fs::symlink_status(file, error);
      if (status.type() == fs::file_type::not_found) continue;
      if (status.type() != fs::file_type::regular)
        found.refusals.push_back(tr("{} is not a regular file; not removing it", file.string()));
      else
        found.items.push_back({file, static_cast<std::int64_t>(fs::file_size(file, error))});
    }
  return found;
}

void apply(const Plan& plan, const LocalModelStore::Manifest& manifest, const fs::path& directory) {
  if (!plan.refusals.empty()) throw std::runtime_error(Text::join(plan.refusals, "; "));
  if (plan.items.empty()) return;
  const ModelsFolderLock lock(directory);
  if (!lock) throw std::runtime_error(tr("an install is at work in {}", directory.string()));
  for (const auto& item : plan.items) fs::remove(item.file);
  for (const auto* artifact : manifest.artifacts()) LocalModelStore::removeStamp(artifact->fileName, directory);
}

}  // namespace halvo::ModelRemoval
