#pragma once

#include <cstdint>
#include <functional>

#include <QFrame>
#include <QTimer>

#include "AmbitudeAppKit/Present/RecordingCard.h"
#include "AmbitudeAppKit/Stores/BackgroundQueue.h"
#include "AmbitudeAppKit/Stores/PersonActions.h"

class QComboBox;
class QLabel;
class QPushButton;
class QVBoxLayout;

namespace halvo {

/// Whether the screen is recorded now, a pause of it and its end, and how large the pictures are.
class RecordingSwitchView : public QFrame {
  Q_OBJECT

 public:
  explicit RecordingSwitchView(std::function<std::int64_t()> nowMs, QWidget* parent = nullptr);
  /// Looks at the files again.
  void look();

 protected:
  void showEvent(QShowEvent* event) override;
  void hideEvent(QHideEvent* event) override;

 private:
  void addButtons(class QVBoxLayout* column);
  void addQuality(class QVBoxLayout* column);
  void act(std::function<PersonActions::Failure()> deed);
  void show(const RecordingCard& card);

  std::function<std::int64_t()> nowMs_;
  QLabel *line_ = nullptr, *told_ = nullptr;
  QWidget* pauses_ = nullptr;
  QPushButton* resume_ = nullptr;
  QComboBox* quality_ = nullptr;
  int pendingDeeds_ = 0;  ///< while there are any, the box holds what the person wants and the file doesn't yet
  QTimer poll_;
  BackgroundQueue queue_{BackgroundQueue::AtEnd::finish};  ///< a pause that was asked for comes, whatever is closed meanwhile
};

}  // namespace halvo
