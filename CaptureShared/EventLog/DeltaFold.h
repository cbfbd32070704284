#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "CaptureShared/EventLog/IncrementalJSONLReader.h"
#include "CaptureShared/Foundation/Match.h"

namespace halvo {

/// Rows folded from a followed file: `committed` in arrival order, `sorted` stable by the comparison. The sorted list is kept up as rows arrive,
/// so that a poll costs what arrived and not what is held.
template <class Row>
class DeltaFold {
 public:
  using Compare = std::function<bool(const Row&, const Row&)>;

  explicit DeltaFold(Compare isOrderedBefore) : isOrderedBefore_(std::move(isOrderedBefore)) {}

  /// `transform` turns a row into the row kept, or drops it.
  template <class F>
  void apply(IncrementalReadResult<Row> result, F&& transform) {
    match(
        std::move(result),
        [&](Reset<Row>&& all) {
          committed_.clear();
          order_.clear();
          take(std::move(all.rows), transform);
        },
        [&](Appended<Row>&& more) { take(std::move(more.rows), transform); });
  }
  void apply(IncrementalReadResult<Row> result) {
    apply(std::move(result), [](Row&& row) { return std::optional(std::move(row)); });
  }
  void clear() {
    committed_.clear();
    order_.clear();
  }

  const std::vector<Row>& committed() const { return committed_; }

  /// The rows in order. While rows arrive in order, as they nearly always do, this is `committed` itself and costs nothing.
  const std::vector<Row>& sorted() const { return order_.empty() ? committed_ : order_; }

 private:
  template <class F>
  void take(std::vector<Row>&& rows, F&& transform) {
    if (committed_.empty()) committed_.reserve(rows.size());
    const auto held = static_cast<std::ptrdiff_t>(committed_.size());
    bool inOrder = true;
    for (auto& row : rows) {
      auto kept = transform(std::move(row));
      if (!kept) continue;
      inOrder = inOrder && (committed_.empty() || !isOrderedBefore_(*kept, committed_.back()));
      committed_.push_back(std::move(*kept));
    }
    if (order_.empty() && inOrder) return;
    // However many rows come late (a clock set back makes all that follow late), this stays one sort of what came and one merge.
    if (order_.empty()) order_.assign(committed_.begin(), committed_.begin() + held);
    order_.insert(order_.end(), committed_.begin() + held, committed_.end());
    const auto came = order_.begin() + held;
    if (!inOrder) std::stable_sort(came, order_.end(), isOrderedBefore_);
    if (came != order_.begin() && came != order_.end() && isOrderedBefore_(*came, *(came - 1)))
      std::inplace_merge(order_.begin(), came, order_.end(), isOrderedBefore_);
  }

  Compare isOrderedBefore_;
  std::vector<Row> committed_;
  std::vector<Row> order_;  ///< empty until a row comes late
};

}  // namespace halvo
