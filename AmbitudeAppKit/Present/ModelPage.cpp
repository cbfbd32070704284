#include "AmbitudeAppKit/Present/ModelPage.h"

#include <algorithm>

#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Provisioning/LocalModelStore.h"
#include "CaptureShared/Provisioning/ModelProvisioning.h"

namespace halvo {

using ModelProvisioning::humanBytes;

namespace {

ModelPage::Row rowOf(const ModelProvisioning::KnownModel& model, const LocalModelStore::Manifest& manifest, const ModelShelf& shelf) {
  ModelPage::Row row{.name = model.name, .role = model.role, .size = humanBytes(model.totalBytes), .fit = "memory unknown"};
  if (const auto memory = shelf.memoryBytes()) {
    row.fit = ModelProvisioning::modelFitsAvailableMemory(*memory, model) ? "fits this machine" : "too large for this machine";
    row.warning = ModelProvisioning::memoryWarning(model.name, *memory).value_or("");
    row.isRecommended = ModelProvisioning::recommendedDefault(*memory) == model.name;
  }
  row.isConfigured = ModelProvisioning::modelNameMatches(model.name, shelf.configured());
  match(
      LocalModelStore::diskState(manifest, shelf.directory()),
      [&](const LocalModelStore::Missing&) {
        const auto toGo = shelf.bytesRemaining(manifest);
        row.isBegun = toGo < manifest.totalBytes();
        row.state = row.isBegun ? humanBytes(toGo) + " still to come" : "not downloaded";
      },
      [&](const LocalModelStore::NeedsVerification&) { row.state = "here, not checked", row.isWhole = row.isBegun = true; },
      [&](const LocalModelStore::Verified&) { row.state = "ready", row.isWhole = row.isBegun = true; });
  return row;
}

}  // namespace

ModelPage ModelPage::of(const ModelShelf& shelf) {
  ModelPage page;
  for (const auto& model : ModelProvisioning::knownModels())
    if (const auto manifest = LocalModelStore::manifest(model.name)) page.rows.push_back(rowOf(model, *manifest, shelf));
  if (const auto configured = shelf.configured(); !LocalModelStore::manifest(configured))
    page.unknownConfigured = "there's no download for " + configured + " (it is the one configured)";
  return page;
}

ModelPage::Progress ModelPage::progress(InstallProgressText& text, const LocalModelInstaller::Progress& progress, std::int64_t nowMs) {
  constexpr std::int64_t whole = 1000;
  const auto words = text.next(progress, nowMs).value_or("");
  const auto done = std::min(progress.completedBytes, progress.totalBytes);
  return {.permille = progress.totalBytes > 0 ? static_cast<int>(done * whole / progress.totalBytes) : 0,
          .words = std::string(Text::trim(words))};
}

}  // namespace halvo
