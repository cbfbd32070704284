#include "AmbitudeAppKit/Views/ThemeStyle.h"

#include <QPainter>
#include <QStyleFactory>
#include <QStyleOption>
#include <QTableView>

#include "AmbitudeAppKit/Views/Theme.h"

namespace halvo {

namespace {

/// A frame as the other fields and buttons have it.
void drawBox(QPainter& painter, const QRect& rect, const QColor& ground, const QColor& edge, int corner, int thick = 1) {
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(QPen(edge, thick));
  painter.setBrush(ground);
  const auto inset = thick / 2.0;
  painter.drawRoundedRect(QRectF(rect).adjusted(inset, inset, -inset, -inset), corner, corner);
}

void drawChevron(QPainter& painter, const QRect& in, bool isUp, bool isEnabled) {
  const auto& theme = Theme::current();
  const double half = Theme::scaled(4), rise = isUp ? -half / 2 : half / 2;
  const auto middle = QRectF(in).center();
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(QPen(isEnabled ? theme.text : theme.muted, Theme::scaled(3) / 2.0, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
  painter.setBrush(Qt::NoBrush);
  painter.drawPolyline(QPolygonF{middle + QPointF(-half, -rise), middle + QPointF(0, rise), middle + QPointF(half, -rise)});
}

void drawCheckBox(QPainter& painter, const QStyleOption& option) {
  const auto& theme = Theme::current();
  const bool isOn = option.state & QStyle::State_On, isEnabled = option.state & QStyle::State_Enabled;
  const auto ink = isEnabled ? theme.accent : theme.muted;
  drawBox(painter, option.rect, isOn ? ink : theme.surface, isOn ? ink : theme.muted, Theme::scaled(3));
  if (!isOn) return;
  const QRectF box(option.rect);
  painter.setPen(QPen(theme.onAccent, box.width() / 8, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
  painter.setBrush(Qt::NoBrush);
  const auto at = [&](double x, double y) { return QPointF(box.x() + x * box.width(), box.y() + y * box.height()); };
  painter.drawPolyline(QPolygonF{at(0.25, 0.52), at(0.43, 0.7), at(0.76, 0.3)});
}

/// The frame of a combo box or a field with arrows.
void drawField(QPainter& painter, const QStyleOptionComplex& option, const QColor& ground) {
  const auto& theme = Theme::current();
  const bool hasFocus = option.state & QStyle::State_HasFocus, isUnder = option.state & QStyle::State_MouseOver;
  const bool isEnabled = option.state & QStyle::State_Enabled;
  drawBox(painter, option.rect, isEnabled ? ground : theme.window, hasFocus || isUnder ? theme.accent : theme.line, Theme::scaled(6),
          hasFocus ? 2 : 1);
}

}  // namespace

ThemeStyle::ThemeStyle() : QProxyStyle(QStyleFactory::create("Fusion")) {}

void ThemeStyle::drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter, const QWidget* widget) const {
  if (element != PE_IndicatorCheckBox) return QProxyStyle::drawPrimitive(element, option, painter, widget);
  painter->save();
  drawCheckBox(*painter, *option);
  painter->restore();
}

void ThemeStyle::drawComplexControl(ComplexControl control, const QStyleOptionComplex* option, QPainter* painter,
                                    const QWidget* widget) const {
  const bool isEnabled = option->state & State_Enabled;
  const auto part = [&](SubControl which) { return proxy()->subControlRect(control, option, which, widget); };
  if (const auto* combo = qstyleoption_cast<const QStyleOptionComboBox*>(option); control == CC_ComboBox && combo) {
    painter->save();
    drawField(*painter, *option, combo->editable ? Theme::current().surface : Theme::current().raised);
    drawChevron(*painter, part(SC_ComboBoxArrow), false, isEnabled);
    painter->restore();
  } else if (const auto* spin = qstyleoption_cast<const QStyleOptionSpinBox*>(option); control == CC_SpinBox && spin) {
    painter->save();
    drawField(*painter, *option, Theme::current().surface);
    drawChevron(*painter, part(SC_SpinBoxUp), true, spin->stepEnabled & QAbstractSpinBox::StepUpEnabled);
    drawChevron(*painter, part(SC_SpinBoxDown), false, spin->stepEnabled & QAbstractSpinBox::StepDownEnabled);
    painter->restore();
  } else {
    QProxyStyle::drawComplexControl(control, option, painter, widget);
  }
}

QRect ThemeStyle::subControlRect(ComplexControl control, const QStyleOptionComplex* option, SubControl which,
                                 const QWidget* widget) const {
  const auto rect = QProxyStyle::subControlRect(control, option, which, widget);
  const bool isText = control == CC_ComboBox ? which == SC_ComboBoxEditField : control == CC_SpinBox && which == SC_SpinBoxEditField;
  return isText ? rect.adjusted(Theme::scaled(5), 0, 0, 0) : rect;
}

int ThemeStyle::pixelMetric(PixelMetric metric, const QStyleOption* option, const QWidget* widget) const {
  // A cell's text begins where its header's does; one pixel is added to this.
  if (metric == PM_FocusFrameHMargin && qobject_cast<const QTableView*>(widget)) return Theme::scaled(6) - 1;
  return QProxyStyle::pixelMetric(metric, option, widget);
}

}  // namespace halvo
