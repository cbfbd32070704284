#include "AmbitudeAppKit/Views/AppIcon.h"

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

namespace halvo::AppIcon {

namespace {

QPixmap drawn(int size) {
  QPixmap picture(size, size);
  picture.fill(Qt::transparent);
  QPainter painter(&picture);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.scale(size / 64.0, size / 64.0);
  painter.setPen(Qt::NoPen);
  painter.setBrush(QColor("#2f5d8a"));
  painter.drawRoundedRect(QRectF(2, 2, 60, 60), 14, 14);
  painter.setPen(QPen(Qt::white, 5, Qt::SolidLine, Qt::RoundCap));
  painter.setBrush(Qt::NoBrush);
  QPainterPath flight(QPointF(14, 34));
  flight.cubicTo(QPointF(24, 12), QPointF(36, 12), QPointF(50, 26));
  painter.drawPath(flight);
  painter.drawLine(QPointF(14, 48), QPointF(50, 48));
  painter.setPen(Qt::NoPen);
  painter.setBrush(QColor("#f3c969"));
  painter.drawEllipse(QPointF(50, 26), 5, 5);
  return picture;
}

}  // namespace

QIcon icon() {
  QIcon made;
  for (const int size : {16, 22, 32, 48, 64, 128, 256}) made.addPixmap(drawn(size));
  return made;
}

}  // namespace halvo::AppIcon
