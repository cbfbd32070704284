#include "AmbitudeAppKit/Views/ClipView.h"

#include <algorithm>
#include <cmath>
#include <exception>

#include <QKeyEvent>
#include <QPainter>

#include "AmbitudeAppKit/Views/Background.h"
#include "AmbitudeAppKit/Views/Theme.h"
#include "AmbitudeAppKit/Views/Widgets.h"
#include "CaptureShared/Labels/Clips/RampPlayResume.h"

namespace halvo {

namespace {

constexpr QSize largest(1280, 720);  ///< what clips are made with: more has nothing to show

/// Of exactly the clip's shape and with even sides: a decoder fills up any other with black.
QSize pictureSize(const QSize& room, double ratio) {
  const auto size = largest.scaled((QSizeF(room) * ratio).toSize(), Qt::KeepAspectRatio).boundedTo(largest);
  const int parts = std::clamp((size.width() + 31) / 32, 1, largest.width() / 32);
  return {parts * 32, parts * 18};
}

}  // namespace

ClipView::ClipView(QWidget* parent) : QWidget(parent) {
  setFocusPolicy(Qt::StrongFocus);
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
  setAccessibleName(tr("The clip of this moment"));
  setAccessibleDescription(tr("What was on the screen up to this moment. Space pauses, left and right step."));
  pace_.setTimerType(Qt::PreciseTimer);
  connect(&pace_, &QTimer::timeout, this, &ClipView::goOn);
}

QSize ClipView::minimumSizeHint() const { return {Theme::scaled(240), Theme::scaled(220)}; }

void ClipView::play(const Clip& clip) {
  stop();
  size_ = pictureSize(size().expandedTo(minimumSizeHint()), devicePixelRatioF());
  frames_ = std::make_shared<ClipFrames>(ClipFrames::Clip{
      .ffmpeg = clip.ffmpeg, .file = clip.file, .fps = clip.fps, .width = size_.width(), .height = size_.height()});
  frameCount_ = clip.frameCount;
  pace_.setInterval(static_cast<int>(std::lround(1000 / std::max(0.1, clip.fps))));
  setPlaying(true);
  ask(0);
}

void ClipView::stop() {
  setPlaying(false);
  if (frames_) queue_.post([frames = frames_](const std::stop_token&) { frames->close(); });
  frames_.reset();
  picture_ = QImage();
  shown_ = -1, stands_ = 0;
  isAsked_ = false;
  next_.reset();
  update();
}

void ClipView::pause() { setPlaying(false); }

void ClipView::setPlaying(bool isPlaying) {
  isPlaying_ = isPlaying;
  if (isPlaying) pace_.start();
  else pace_.stop();
  update();
}

void ClipView::togglePause() {
  if (!frames_) return;
  if (isPlaying_) return setPlaying(false);
  switch (rampPlayResume(shown_ != stands_, stands_ + 1 >= frameCount_)) {
    case RampPlayResume::restartFromHead: ask(stands_ = 0); break;
    case RampPlayResume::clearDetourAndResume: ask(stands_); break;
    case RampPlayResume::resumeAsIs: break;
  }
  setPlaying(true);
}

void ClipView::step(int by) {
  if (!frames_ || shown_ < 0) return;
  setPlaying(false);
  const auto from = next_.value_or(shown_);
  if (const auto to = std::clamp(from + by, 0, std::max(0, frameCount_ - 1)); to != from) ask(to);
}

void ClipView::goOn() {
  if (isAsked_ || shown_ != stands_) return;  // the decoder is slower than the clip
  if (stands_ + 1 >= frameCount_) return setPlaying(false);
  ask(stands_ + 1);
}

void ClipView::ask(int frame) {
  if (isAsked_) {
    next_ = frame;
    return;
  }
  isAsked_ = true;
  inBackground(
      queue_, this,
      [frames = frames_, frame](const std::stop_token& stop) {
        try {
          return Answer{frames->frame(frame, stop), {}};
        } catch (const std::exception& error) {
          return Answer{std::nullopt, error.what()};
        }
      },
      [this, frame, frames = std::weak_ptr(frames_)](Answer answer) {
        if (frames_ && frames.lock() == frames_) take(frame, std::move(answer));
      });
}

void ClipView::take(int frame, Answer answer) {
  isAsked_ = false;
  if (!answer.picture) {
    setPlaying(false);
    next_.reset();
    if (!answer.failure.empty() || shown_ < 0) emit failed(tr("The clip can't be played. %1").arg(Widgets::qt(answer.failure)).trimmed());
    else frameCount_ = std::min(frameCount_, frame);  // it has fewer than was told
    return;
  }
  picture_ = QImage(size_, QImage::Format_RGB32);
  for (int line = 0; line < size_.height(); ++line) {
    const auto bytes = static_cast<std::size_t>(size_.width()) * 4;
    std::copy_n(answer.picture->data() + bytes * static_cast<std::size_t>(line), bytes, reinterpret_cast<char*>(picture_.scanLine(line)));
  }
  shown_ = frame;
  if (isPlaying_) stands_ = frame;
  update();
  if (const auto wanted = std::exchange(next_, std::nullopt)) ask(*wanted);
}

void ClipView::paintEvent(QPaintEvent*) {
  const auto& theme = Theme::current();
  QPainter painter(this);
  painter.fillRect(rect(), theme.raised);
  if (!picture_.isNull()) {
    QRectF box(QPointF(0, 0), QSizeF(picture_.size()).scaled(size(), Qt::KeepAspectRatio));
    box.moveCenter(QRectF(rect()).center());
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(box, picture_);
    const double bar = Theme::scaled(3), share = frameCount_ > 1 ? static_cast<double>(shown_) / (frameCount_ - 1) : 1;
    painter.fillRect(QRectF(0, height() - bar, width(), bar), theme.line);
    painter.fillRect(QRectF(0, height() - bar, width() * share, bar), isPlaying_ ? theme.accent : theme.muted);
  }
  if (hasFocus()) {
    painter.setPen(QPen(theme.accent, 2));
    painter.drawRect(rect().adjusted(1, 1, -1, -1));
  }
}

void ClipView::keyPressEvent(QKeyEvent* event) {
  switch (event->key()) {
    case Qt::Key_Space: return togglePause();
    case Qt::Key_Left: return step(-1);
    case Qt::Key_Right: return step(1);
    default: QWidget::keyPressEvent(event);
  }
}

}  // namespace halvo
