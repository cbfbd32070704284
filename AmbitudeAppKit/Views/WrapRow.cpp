#include "AmbitudeAppKit/Views/WrapRow.h"

#include <algorithm>

#include "AmbitudeAppKit/Views/Theme.h"

namespace halvo {

WrapRow::WrapRow(QWidget* parent) : QLayout(parent) {
  setContentsMargins(0, 0, 0, 0);
  Theme::setSpacing(this, 8);
}

WrapRow::~WrapRow() = default;

void WrapRow::addItem(QLayoutItem* item) { items_.emplace_back(item); }

QLayoutItem* WrapRow::itemAt(int index) const {
  return index >= 0 && index < count() ? items_[static_cast<std::size_t>(index)].get() : nullptr;
}

QLayoutItem* WrapRow::takeAt(int index) {
  if (!itemAt(index)) return nullptr;
  const auto at = items_.begin() + index;
  auto* item = at->release();
  items_.erase(at);
  return item;
}

void WrapRow::setGeometry(const QRect& room) {
  QLayout::setGeometry(room);
  arrange(room, Places::taken);
}

QSize WrapRow::sizeHint() const {
  QSize size;
  for (const auto& item : items_)
    if (!item->isEmpty()) size = {size.width() + item->sizeHint().width() + spacing(), std::max(size.height(), item->sizeHint().height())};
  return size;
}

QSize WrapRow::minimumSize() const {
  QSize size;
  for (const auto& item : items_)
    if (!item->isEmpty()) size = size.expandedTo(item->sizeHint());
  return size;
}

int WrapRow::arrange(const QRect& room, Places places) const {
  int x = room.x(), y = room.y(), rowHeight = 0;
  std::vector<QLayoutItem*> row;
  const auto endRow = [&] {
    for (auto* item : row) {
      const auto size = item->sizeHint();
      if (places == Places::taken) item->setGeometry(QRect(QPoint(x, y + (rowHeight - size.height()) / 2), size));
      x += size.width() + spacing();
    }
    row.clear();
  };
  int width = 0;
  for (const auto& item : items_) {
    if (item->isEmpty()) continue;
    const auto size = item->sizeHint();
    if (!row.empty() && width + size.width() > room.width()) {
      endRow();
      x = room.x(), y += rowHeight + spacing();
      width = rowHeight = 0;
    }
    row.push_back(item.get());
    width += size.width() + spacing();
    rowHeight = std::max(rowHeight, size.height());
  }
  endRow();
  return y + rowHeight - room.y();
}

}  // namespace halvo
