#pragma once

#include <functional>

#include <QWidget>

#include "AmbitudeAppKit/Present/DayStrip.h"

namespace halvo {

/// The day as a picture. The wheel, + and - zoom, dragging and the arrow keys move along; hovering tells what was so at that moment.
class DayStripView : public QWidget {
  Q_OBJECT

 public:
  explicit DayStripView(Calendar calendar, QWidget* parent = nullptr);

  void show(const DayStrip& day);
  QSize sizeHint() const override;
  QSize minimumSizeHint() const override;

 protected:
  void paintEvent(QPaintEvent*) override;
  void wheelEvent(QWheelEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void leaveEvent(QEvent*) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  struct Lanes;
  Lanes lanes() const;
  std::int64_t marginMs() const;  ///< room at both ends, for marks
  std::int64_t earliest() const;
  std::int64_t wholeMs() const;
  double xOf(std::int64_t ms) const;
  std::int64_t msAt(double x) const;
  void zoom(double factor, std::int64_t aroundMs);
  void moveBy(std::int64_t ms);
  void keepInside();
  void explain(std::int64_t ms, const QPoint& at);
  void paintBlocks(QPainter& painter, const std::vector<DayStrip::Block>& blocks, const QRectF& lane,
                   const std::function<QColor(const DayStrip::Block&)>& colorOf, bool withLabels) const;
  void paintMarks(QPainter& painter, const QRectF& lane) const;
  void paintHours(QPainter& painter, const QRectF& area) const;

  Calendar calendar_;
  DayStrip day_;
  std::int64_t viewFromMs_ = 0, viewToMs_ = 0;
  bool followsNow_ = true;
  double pressedX_ = 0;
  std::int64_t pressedFromMs_ = 0;
  std::int64_t cursorMs_ = 0;  ///< the moment that is explained; 0: none
};

}  // namespace halvo
