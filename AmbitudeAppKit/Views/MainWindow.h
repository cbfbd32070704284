#pragma once

#include <vector>

#include <QMainWindow>

#include "AmbitudeAppKit/Views/Page.h"

class QLabel;
class QListWidget;
class QStackedWidget;

namespace halvo {

/// The window: pages at the left, the health line at their foot, and the page itself.
class MainWindow : public QMainWindow {
  Q_OBJECT

 public:
  explicit MainWindow(std::vector<PageEntry> pages, QWidget* parent = nullptr);

  void showPage(int index);
  int currentPage() const;
  Page* page(int index);
  int pageCount() const { return static_cast<int>(pages_.size()); }
  /// The one honest line: what is running, what isn't, since when.
  void showHealth(const QString& title, const QString& detail, bool isWarning);

 private:
  struct Slot {
    PageEntry entry;
    Page* made = nullptr;
  };
  std::vector<Slot> pages_;
  QListWidget* list_ = nullptr;
  QStackedWidget* stack_ = nullptr;
  QLabel *healthTitle_ = nullptr, *healthDetail_ = nullptr;
};

}  // namespace halvo
