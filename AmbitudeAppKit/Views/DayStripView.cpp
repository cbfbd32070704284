#include "AmbitudeAppKit/Views/DayStripView.h"

#include <algorithm>
#include <array>
#include <cmath>

#include <QKeyEvent>
#include <QPainter>
#include <QPainterPath>
#include <QToolTip>
#include <QWheelEvent>

#include "AmbitudeAppKit/Views/Theme.h"
#include "AmbitudeAppKit/Views/Widgets.h"

namespace halvo {

namespace {

constexpr std::int64_t shortestViewMs = 10 * 60'000;
constexpr double zoomStep = 1.25;

QColor verdictColor(const DayStrip::Block& block) {
  const auto& theme = Theme::current();
  switch (block.slot) {
    case DayStrip::onTask: return theme.good;
    case DayStrip::notAligned: return theme.bad;
    default: return theme.line;
  }
}

QColor presenceColor(const DayStrip::Block& block) {
  auto color = Theme::current().text;
  color.setAlphaF(block.slot == 0 ? 0.55F : block.slot == 1 ? 0.28F : 0.08F);
  return color;
}

/// Black or white, whichever is read better on a ground.
QColor inkOn(const QColor& ground) {
  const auto linear = [](double part) { return std::pow(part, 2.2); };
  const auto luminance = 0.2126 * linear(ground.redF()) + 0.7152 * linear(ground.greenF()) + 0.0722 * linear(ground.blueF());
  return luminance > 0.18 ? QColor("#16181a") : QColor("#ffffff");
}

QColor markColor(DayStrip::Mark::Kind kind) {
  const auto& theme = Theme::current();
  switch (kind) {
    case DayStrip::Mark::Kind::checkIn: return theme.accent;
    case DayStrip::Mark::Kind::declared: return theme.text;
    case DayStrip::Mark::Kind::cleared: return theme.muted;
    default: return theme.quiet;
  }
}

}  // namespace

struct DayStripView::Lanes {
  QRectF marks, apps, presence, verdicts, hours;
};

DayStripView::DayStripView(Calendar calendar, QWidget* parent) : QWidget(parent), calendar_(calendar) {
  setMouseTracking(true);
  setFocusPolicy(Qt::StrongFocus);
  setAccessibleName(tr("The day as a picture"));
  setAccessibleDescription(tr("Apps, presence, verdicts and check-ins. Arrow keys move a cursor that is explained; plus and minus zoom."));
}

QSize DayStripView::minimumSizeHint() const { return {Theme::scaled(240), Theme::scaled(132)}; }
QSize DayStripView::sizeHint() const { return {Theme::scaled(720), Theme::scaled(148)}; }

void DayStripView::show(const DayStrip& day) {
  day_ = day;
  if (followsNow_ || viewToMs_ <= viewFromMs_) {
    viewFromMs_ = earliest();
    viewToMs_ = viewFromMs_ + wholeMs();
  }
  update();
}

std::int64_t DayStripView::marginMs() const { return std::max(day_.toMs - day_.fromMs, shortestViewMs) / 40; }
std::int64_t DayStripView::earliest() const { return day_.fromMs - marginMs(); }
std::int64_t DayStripView::wholeMs() const { return std::max(day_.toMs - day_.fromMs, shortestViewMs) + 2 * marginMs(); }

DayStripView::Lanes DayStripView::lanes() const {
  const double width = this->width(), unit = (height() - Theme::scaled(22)) / 10.0;
  return {.marks = {0, 0, width, unit * 2.2},
          .apps = {0, unit * 2.4, width, unit * 4},
          .presence = {0, unit * 6.6, width, unit * 1.1},
          .verdicts = {0, unit * 7.9, width, unit * 2},
          .hours = {0, unit * 10, width, static_cast<double>(Theme::scaled(22))}};
}

double DayStripView::xOf(std::int64_t ms) const {
  return static_cast<double>(ms - viewFromMs_) / static_cast<double>(std::max<std::int64_t>(1, viewToMs_ - viewFromMs_)) * width();
}

std::int64_t DayStripView::msAt(double x) const {
  return viewFromMs_ + static_cast<std::int64_t>(x / std::max(1, width()) * static_cast<double>(viewToMs_ - viewFromMs_));
}

void DayStripView::paintBlocks(QPainter& painter, const std::vector<DayStrip::Block>& blocks, const QRectF& lane,
                               const std::function<QColor(const DayStrip::Block&)>& colorOf, bool withLabels) const {
  const QFontMetrics metrics(painter.font());
  for (const auto& block : blocks) {
    if (block.toMs < viewFromMs_ || block.fromMs > viewToMs_) continue;
    const auto left = std::max(0.0, xOf(block.fromMs)), right = std::min<double>(width(), xOf(block.toMs));
    // Neighbours of one colour stay two.
    const QRectF box(left, lane.top(), std::max(1.0, right - left - (withLabels ? 1 : 0)), lane.height());
    const auto color = colorOf(block);
    painter.fillRect(box, color);
    const auto room = static_cast<int>(box.width()) - Theme::scaled(8);
    if (!withLabels || room < Theme::scaled(28)) continue;
    painter.setPen(inkOn(color));
    painter.drawText(box.adjusted(Theme::scaled(4), 0, -Theme::scaled(4), 0), Qt::AlignLeft | Qt::AlignVCenter,
                     metrics.elidedText(Widgets::qt(block.label), Qt::ElideRight, room));
  }
}

void DayStripView::paintMarks(QPainter& painter, const QRectF& lane) const {
  painter.setRenderHint(QPainter::Antialiasing);
  const auto size = lane.height() * 0.55;
  for (const auto& mark : day_.marks) {
    const auto x = xOf(mark.ms);
    if (x < -size || x > width() + size) continue;
    const QRectF box(x - size / 2, lane.bottom() - size, size, size);
    painter.setPen(QPen(Theme::current().surface, 1));  // neighbours stay two
    painter.setBrush(markColor(mark.kind));
    // The shapes differ as well as the colours.
    if (mark.kind == DayStrip::Mark::Kind::checkIn) {
      painter.drawEllipse(box);
    } else if (mark.kind == DayStrip::Mark::Kind::declared) {
      painter.drawPolygon(QPolygonF{box.bottomLeft(), QPointF(x, box.top()), box.bottomRight()});
    } else {
      painter.drawRect(box.adjusted(size / 5, size / 5, -size / 5, -size / 5));
    }
  }
  painter.setRenderHint(QPainter::Antialiasing, false);
}

void DayStripView::paintHours(QPainter& painter, const QRectF& area) const {
  constexpr std::array<std::int64_t, 6> steps{5 * 60'000, 15 * 60'000, 30 * 60'000, 3'600'000, 2 * 3'600'000, 4 * 3'600'000};
  const auto wanted = (viewToMs_ - viewFromMs_) / std::max(1, width() / Theme::scaled(70));
  const auto* step = std::find_if(steps.begin(), steps.end(), [&](std::int64_t ms) { return ms >= wanted; });
  const auto every = step == steps.end() ? steps.back() : *step;
  const auto at = calendar_.fields(viewFromMs_);
  const auto midnight = calendar_.instant(at.year, at.month, at.day, 0);
  for (auto ms = midnight; ms <= viewToMs_; ms += every) {
    if (ms < viewFromMs_) continue;
    const auto x = xOf(ms);
    painter.setPen(Theme::current().line);
    painter.drawLine(QPointF(x, 0), QPointF(x, area.top() + 3));
    painter.setPen(Theme::current().muted);
    const auto words = Widgets::qt(calendar_.hourMinute(ms));
    const auto half = QFontMetrics(painter.font()).horizontalAdvance(words) / 2.0 + 1;
    if (x < half || x + half > width()) continue;  // there is no room for it under its line
    painter.drawText(QRectF(x - half, area.top(), 2 * half, area.height()), Qt::AlignHCenter | Qt::AlignBottom, words);
  }
}

void DayStripView::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  const auto& theme = Theme::current();
  const auto at = lanes();
  painter.setFont(Theme::font(0.85));
  for (const auto& lane : {at.apps, at.presence, at.verdicts}) painter.fillRect(lane, theme.raised);
  paintHours(painter, at.hours);
  const auto appColor = [&](const DayStrip::Block& b) {
    return b.slot == DayStrip::locked ? theme.line : theme.apps[static_cast<std::size_t>(b.slot)];
  };
  paintBlocks(painter, day_.apps, at.apps, appColor, true);
  paintBlocks(painter, day_.presence, at.presence, presenceColor, false);
  paintBlocks(painter, day_.verdicts, at.verdicts, verdictColor, true);
  paintMarks(painter, at.marks);
  if (cursorMs_ > 0 && hasFocus()) {
    painter.setPen(QPen(theme.accent, 2));
    painter.drawLine(QPointF(xOf(cursorMs_), 0), QPointF(xOf(cursorMs_), at.hours.top()));
  }
  if (hasFocus()) {
    painter.setPen(QPen(theme.accent, 2));
    painter.setBrush(Qt::NoBrush);
    painter.drawRect(rect().adjusted(1, 1, -1, -1));
  }
}

void DayStripView::keepInside() {
  const auto whole = wholeMs();
  const auto length = std::clamp(viewToMs_ - viewFromMs_, shortestViewMs, whole);
  viewFromMs_ = std::clamp(viewFromMs_, earliest(), earliest() + whole - length);
  viewToMs_ = viewFromMs_ + length;
  followsNow_ = length == whole;
  update();
}

void DayStripView::zoom(double factor, std::int64_t aroundMs) {
  const auto around = static_cast<double>(aroundMs);
  viewFromMs_ = static_cast<std::int64_t>(around - (around - static_cast<double>(viewFromMs_)) / factor);
  viewToMs_ = static_cast<std::int64_t>(around + (static_cast<double>(viewToMs_) - around) / factor);
  keepInside();
}

void DayStripView::moveBy(std::int64_t ms) {
  viewFromMs_ += ms;
  viewToMs_ += ms;
  keepInside();
}

void DayStripView::explain(std::int64_t ms, const QPoint& at) {
  const auto reach = static_cast<std::int64_t>(static_cast<double>(viewToMs_ - viewFromMs_) * 6 / std::max(1, width()));
  QStringList lines;
  for (const auto& line : day_.explain(ms, reach, calendar_)) lines << Widgets::qt(line);
  QToolTip::showText(mapToGlobal(at), "<p>" + lines.join('\n').toHtmlEscaped().replace('\n', "<br>") + "</p>", this);
  setAccessibleDescription(lines.join(". "));
}

void DayStripView::wheelEvent(QWheelEvent* event) {
  const auto steps = event->angleDelta().y() / 120.0;
  if (steps == 0) return event->ignore();
  zoom(std::pow(zoomStep, steps), msAt(event->position().x()));
}

void DayStripView::mousePressEvent(QMouseEvent* event) {
  pressedX_ = event->position().x();
  pressedFromMs_ = viewFromMs_;
}

void DayStripView::mouseMoveEvent(QMouseEvent* event) {
  if (event->buttons() & Qt::LeftButton) {
    const auto dragged = (pressedX_ - event->position().x()) / std::max(1, width()) * static_cast<double>(viewToMs_ - viewFromMs_);
    return moveBy(pressedFromMs_ + static_cast<std::int64_t>(dragged) - viewFromMs_);
  }
  explain(msAt(event->position().x()), event->position().toPoint());
}

void DayStripView::leaveEvent(QEvent*) { QToolTip::hideText(); }

void DayStripView::keyPressEvent(QKeyEvent* event) {
  const auto step = (viewToMs_ - viewFromMs_) / 60;
  if (cursorMs_ == 0) cursorMs_ = viewToMs_;
  switch (event->key()) {
    case Qt::Key_Plus:
    case Qt::Key_Equal: return zoom(zoomStep, cursorMs_);
    case Qt::Key_Minus: return zoom(1 / zoomStep, cursorMs_);
    case Qt::Key_Left: cursorMs_ -= step; break;
    case Qt::Key_Right: cursorMs_ += step; break;
    case Qt::Key_Home: cursorMs_ = day_.fromMs; break;
    case Qt::Key_End: cursorMs_ = day_.toMs; break;
    default: return QWidget::keyPressEvent(event);
  }
  cursorMs_ = std::clamp(cursorMs_, day_.fromMs, std::max(day_.fromMs, day_.toMs));
  if (cursorMs_ < viewFromMs_) moveBy(cursorMs_ - viewFromMs_);
  if (cursorMs_ > viewToMs_) moveBy(cursorMs_ - viewToMs_);
  update();
  explain(cursorMs_, QPoint(static_cast<int>(xOf(cursorMs_)), height()));
}

}  // namespace halvo
