#include "tools/Screenshots/InventedRecording.h"

#include <chrono>
#include <cmath>
#include <cstring>

#include <QImage>
#include <QPainter>
#include <QPainterPath>

#include "CaptureShared/Foundation/FFmpegResolver.h"
#include "CaptureShared/Recording/VideoArchiveKeyStore.h"
#include "Platform/Linux/LinuxArchiveKeyBackend.h"
#include "agents/Capturer/DisplayRecorder.h"

namespace halvo::InventedRecording {

namespace {

constexpr int width = 960, height = 540;

std::int64_t beginMs(const Calendar& calendar) { return calendar.instant(2026, 3, 4, 9, 40); }

void paintWindow(QPainter& painter, const QString& title) {
  painter.fillRect(0, 0, width, height, QColor("#5b6b75"));
  painter.fillRect(60, 30, width - 120, height - 60, QColor("#fbfbf8"));
  painter.fillRect(60, 30, width - 120, 34, QColor("#dcdcd4"));
  painter.setPen(QColor("#2a2a2a"));
  painter.setFont(QFont("Inter", 11));
  painter.drawText(QRect(60, 30, width - 120, 34), Qt::AlignCenter, title);
}

/// A page that fills with lines as the morning goes on.
void paintEssay(QPainter& painter, int second) {
  paintWindow(painter, "On tides.odt - LibreOffice Writer");
  painter.fillRect(220, 80, width - 440, height - 110, Qt::white);
  painter.setFont(QFont("Inter", 17));
  painter.drawText(250, 124, "On tides");
  const int letters = second / 2;
  constexpr int inLine = 120, lines = 18;
  for (int line = 0; line < lines && line * inLine < letters; ++line) {
    const int shown = std::min(inLine, letters - line * inLine) * (line % 5 == 4 ? 60 : 100) / 100;
    painter.fillRect(250, 148 + line * 19, shown * 460 / inLine, 7, QColor("#6f6f6f"));
  }
}

/// A sail on moving water.
void paintVideo(QPainter& painter, int second) {
  paintWindow(painter, "Sailing around the cape - Mozilla Firefox");
  const QRect picture(140, 84, width - 280, 360);
  QLinearGradient sky(picture.topLeft(), picture.bottomLeft());
  sky.setColorAt(0, QColor("#86b7d8")), sky.setColorAt(0.6, QColor("#e8eef0"));
  painter.setClipRect(picture);
  painter.fillRect(picture, sky);
  const int x = 200 + second * 4 % 520, y = 300 + static_cast<int>(std::lround(6 * std::sin(second)));
  QPainterPath sail(QPointF(x, y - 120));
  sail.lineTo(x + 60, y), sail.lineTo(x, y);
  painter.fillPath(sail, Qt::white);
  painter.fillRect(x - 20, y + 4, 96, 16, QColor("#7a4a2b"));
  painter.fillRect(140, 318, width - 280, 126, QColor("#2f6f8f"));
  painter.setClipping(false);
  painter.fillRect(140, 456, width - 280, 5, QColor("#c9c9c2"));
  painter.fillRect(140, 456, std::min(second * (width - 280) / 900, width - 280), 5, QColor("#b3392f"));
}

}  // namespace

void write(const std::filesystem::path& root, const Calendar& calendar) {
  const auto environment = processEnvironment();
  auto secrets = LinuxArchiveKeyBackend::forAccount(environment);
  const auto fromMs = beginMs(calendar), videoMs = calendar.instant(2026, 3, 4, 10, 44);
  const auto untilMs = calendar.instant(2026, 3, 4, 10, 58);
  const auto programs = VideoArchiveKeyStore::trustedApplicationPathsForCurrentBundle().value_or(std::vector<std::filesystem::path>{});
  const auto key = VideoArchiveKeyStore(secrets).loadOrRotate({.trustedApplicationPaths = programs, .includeSelf = true, .nowMs = fromMs});
  DisplayRecorder recorder({.display = {.bounds = {.width = width, .height = height}, .isPrimary = true},
                            .root = root,
                            .key = key.key,
                            .generation = key.generation,
                            .ffmpeg = FFmpegResolver::resolve(environment),
                            .calendar = calendar});
  constexpr std::int64_t stepMs = 2'000;
  for (auto ms = fromMs; ms < untilMs; ms += stepMs) {
    QImage image(recorder.room().data(), width, height, QImage::Format_RGB32);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    if (ms < videoMs)
      paintEssay(painter, static_cast<int>((ms - fromMs) / 1000));
    else
      paintVideo(painter, static_cast<int>((ms - videoMs) / 1000));
    painter.end();
    recorder.record(ms, 0);
    recorder.pump();
  }
  recorder.beginEnd();
  recorder.end(std::chrono::steady_clock::now() + std::chrono::seconds(30));
}

RampClipPlan::Locate locate(const std::filesystem::path& root, const Calendar& calendar) {
  const auto fromMs = beginMs(calendar);
  const auto folder = DataPaths::frameTimestampsPath(0, root).parent_path();
  return [=, list = FrameLocator::SegmentList::read(FrameLocator::segmentsPath(folder, fromMs))](
             std::int64_t atMs, std::int64_t) -> FrameLocator::LocateResult {
    const auto frame = static_cast<std::int64_t>(std::floor(static_cast<double>(atMs - fromMs) * FrameLocator::fps / 1000));
    const auto* segment = list.holding(frame);
    if (!segment || frame >= segment->endFrame) return FrameLocator::NoFrameNearby();
    return FrameLocator::Located{.file = folder / segment->filename,
                                 .frameIndex = frame,
                                 .frameRealMs = fromMs + static_cast<std::int64_t>(static_cast<double>(frame) * 1000 / FrameLocator::fps),
                                 .segmentStartFrame = segment->startFrame};
  };
}

}  // namespace halvo::InventedRecording
