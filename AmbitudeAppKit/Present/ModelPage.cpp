#include "AmbitudeAppKit/Present/ModelPage.h"

#include <algorithm>

#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Provisioning/LocalModelStore.h"
#include "CaptureShared/Provisioning/ModelProvisioning.h"

namespace halvo {

using ModelProvisioning::humanBytes;

namespace {

ModelPage::Row rowOf(const ModelProvisioning::KnownModel& model, const LocalModelStore::Manifest& manifest, const ModelShelf& shelf) {
  ModelPage::Row row{.name = model.name, .role = model.role, .size = humanBytes(model.totalBytes), .fit = tr("memory unknown")};
  if (const auto memory = shelf.memoryBytes()) {
    row.fit = ModelProvisioning::modelFitsAvailableMemory(*memory, model) ? tr("fits this machine") : tr("too large for this machine");
    row.warning = ModelProvisioning::memoryWarning(model.name, *memory).value_or("");
    row.isRecommended = ModelProvisioning::recommendedDefault(*memory) == model.name;
  }
  row.isConfigured = ModelProvisioning::modelNameMatches(model.name, shelf.configured());
  match(
      LocalModelStore::diskState(manifest, shelf.directory()),
      [&](const LocalModelStore::Missing&) {
        const auto toGo = shelf.bytesRemaining(manifest);
        row.isBegun = toGo < manifest.totalBytes();
        row.state = row.isBegun ? tr("{} still to come", humanBytes(toGo)) : tr("not downloaded");
      },
      [&](const LocalModelStore::NeedsVerification&) { row.state = tr("here, not checked"), row.isWhole = row.isBegun = true; },
      [&](const LocalModelStore::Verified&) { row.state = tr("ready"), row.isWhole = row.isBegun = true; });
  return row;
}

}  // namespace

ModelPage ModelPage::of(const ModelShelf& shelf) {
  ModelPage page;
  for (const auto& model : ModelProvisioning::knownModels())
    if (const auto manifest = LocalModelStore::manifest(model.name)) page.rows.push_back(rowOf(model, *manifest, shelf));
  if (const auto configured = shelf.configured(); !LocalModelStore::manifest(configured))
    page.unknownConfigured = tr("there's no download for {} (it is the one configured)", configured);
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
