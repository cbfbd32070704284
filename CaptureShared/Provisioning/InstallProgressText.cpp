#include "CaptureShared/Provisioning/InstallProgressText.h"

#include <algorithm>

#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Provisioning/ModelProvisioning.h"

namespace halvo {
namespace {

constexpr std::int64_t tenths = 10, percents = 100;

std::string barText(std::int64_t completed, std::int64_t total) {
  constexpr std::int64_t width = 20;
  const auto filled = static_cast<std::size_t>(total > 0 ? completed * width / total : 0);
  return "[" + std::string(filled, '#') + std::string(static_cast<std::size_t>(width) - filled, ' ') + "]";
}

}  // namespace

std::optional<std::string> InstallProgressText::next(const LocalModelInstaller::Progress& progress, std::int64_t nowMs) {
  const bool isNew = stage_ != progress.stage;
  if (isNew) {
    stage_ = progress.stage;
    stageBeganMs_ = nowMs;
    stageBeganAtBytes_ = progress.completedBytes;
  }
  const auto tenth = progress.totalBytes > 0 ? progress.completedBytes * tenths / progress.totalBytes : 0;
  if (style_ == Style::lines && !isNew && tenth == shownTenth_) return std::nullopt;
  shownTenth_ = tenth;
  return text(progress, nowMs);
}

std::string InstallProgressText::text(const LocalModelInstaller::Progress& progress, std::int64_t nowMs) const {
  using ModelProvisioning::humanBytes;
  const auto total = progress.totalBytes, completed = std::min(progress.completedBytes, total);
  auto line = style_ == Style::bar ? barText(completed, total) + " " : std::string();
  line += tr("{:3d}%  {} of {}  ", total > 0 ? completed * percents / total : 0, humanBytes(completed), humanBytes(total));
  return line + match(
                    progress.stage, [](const LocalModelInstaller::Checking& checking) { return tr("checking {}", checking.file); },
                    [&](const LocalModelInstaller::Downloading& downloading) {
                      const auto took = nowMs - stageBeganMs_, came = completed - stageBeganAtBytes_;
                      const auto name = tr("downloading {}", downloading.file);
                      if (took <= 0 || came <= 0) return name;
                      constexpr double msPerSec = 1000;
                      const auto perSec = static_cast<double>(came) * msPerSec / static_cast<double>(took);
                      return tr("{}  {:.1f} MB/s  {} left", name, perSec / 1e6,
                                         durationText(static_cast<std::int64_t>(static_cast<double>(total - completed) / perSec)));
                    });
}

std::string durationText(std::int64_t seconds) {
  constexpr std::int64_t minute = 60, hour = 3600;
  if (seconds < minute) return tr("{} s", seconds);
  if (seconds < hour) return tr("{} min", seconds / minute);
  return tr("{} h {} min", seconds / hour, seconds % hour / minute);
}

}  // namespace halvo
