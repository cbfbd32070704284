#pragma once

#include <functional>

#include <QString>
#include <QWidget>

namespace halvo {

/// One page of the window.
class Page : public QWidget {
 public:
  using QWidget::QWidget;
  /// It came to the front: the moment to look at files that it does not follow.
  virtual void shown() {}
};

/// How the window offers a page. It is made when it is first looked at.
struct PageEntry {
  QString name;         ///< in the list
  QString description;  ///< for a screen reader
  std::function<Page*()> make;
};

}  // namespace halvo
