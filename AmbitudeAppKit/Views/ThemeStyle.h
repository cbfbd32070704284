#pragma once

#include <QProxyStyle>

namespace halvo {

/// Draws in the theme's own colours what a style sheet can't without pictures: check boxes, and the fields with arrows.
class ThemeStyle : public QProxyStyle {
 public:
  ThemeStyle();

  void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter, const QWidget* widget) const override;
  void drawComplexControl(ComplexControl control, const QStyleOptionComplex* option, QPainter* painter,
                          const QWidget* widget) const override;
  QRect subControlRect(ComplexControl control, const QStyleOptionComplex* option, SubControl which, const QWidget* widget) const override;
  int pixelMetric(PixelMetric metric, const QStyleOption* option, const QWidget* widget) const override;
};

}  // namespace halvo
