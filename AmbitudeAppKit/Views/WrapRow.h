#pragma once

#include <memory>
#include <vector>

#include <QLayout>

namespace halvo {

/// Widgets side by side, in further rows below when the room is too narrow for all of them.
class WrapRow : public QLayout {
 public:
  explicit WrapRow(QWidget* parent = nullptr);
  ~WrapRow() override;

  void addItem(QLayoutItem* item) override;
  int count() const override { return static_cast<int>(items_.size()); }
  QLayoutItem* itemAt(int index) const override;
  QLayoutItem* takeAt(int index) override;
  Qt::Orientations expandingDirections() const override { return {}; }
  bool hasHeightForWidth() const override { return true; }
  int heightForWidth(int width) const override { return arrange(QRect(0, 0, width, 0), Places::tried); }
  void setGeometry(const QRect& room) override;
  QSize sizeHint() const override;
  QSize minimumSize() const override;

 private:
  enum class Places { tried, taken };
  /// Puts the items into a room; the height that they need.
  int arrange(const QRect& room, Places places) const;

  std::vector<std::unique_ptr<QLayoutItem>> items_;
};

}  // namespace halvo
