#include "AmbitudeAppKit/Views/RecordingSwitchView.h"

#include <optional>

#include <QApplication>
#include <QComboBox>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "AmbitudeAppKit/Views/Background.h"
#include "AmbitudeAppKit/Views/Theme.h"
#include "AmbitudeAppKit/Views/Widgets.h"
#include "AmbitudeAppKit/Views/WrapRow.h"
#include "CaptureShared/DataRoot/DataPaths.h"

namespace halvo {

using Quality = RecordingControls::Quality;

namespace {

constexpr int pollMs = 2'000;

}  // namespace

RecordingSwitchView::RecordingSwitchView(std::function<std::int64_t()> nowMs, QWidget* parent)
    : QFrame(parent), nowMs_(std::move(nowMs)) {
  setProperty("card", true);
  auto* column = new QVBoxLayout(this);
  Theme::setMargins(column, 14);
  Theme::setSpacing(column, 8);
  column->addWidget(Widgets::subheading(tr("Recording")));
  line_ = Widgets::text();
  line_->setObjectName("recording");
  column->addWidget(line_);
  addButtons(column);
  addQuality(column);
  column->addWidget(Widgets::note(tr("While it is paused, no picture of your screen is kept. What is in front is still noted and judged: quiet and breaks are for that.")));
  told_ = Widgets::text();
  told_->setVisible(false);
  Widgets::setWarning(told_, true);
  column->addWidget(told_);
  connect(&poll_, &QTimer::timeout, this, &RecordingSwitchView::look);
}

void RecordingSwitchView::addButtons(QVBoxLayout* column) {
  pauses_ = new QWidget;
  auto* row = new WrapRow(pauses_);
  const auto pause = [&](const QString& label, std::optional<std::int64_t> forMs) {
    return Widgets::button(label, [this, forMs] {
      const auto now = nowMs_();
      act([now, until = forMs ? std::optional(now + *forMs) : std::nullopt] { return PersonActions::pauseRecording(until, now); });
    });
  };
  row->addWidget(pause(tr("Pause for 15 minutes"), 15 * 60'000));
  row->addWidget(pause(tr("Pause for an hour"), 60 * 60'000));
  row->addWidget(pause(tr("Pause until I resume"), std::nullopt));
  column->addWidget(pauses_);
  resume_ = Widgets::primary(tr("Resume"), [this] { act(PersonActions::resumeRecording); }, tr("Resume recording"));
  resume_->setVisible(false);
  column->addWidget(resume_, 0, Qt::AlignLeft);
}

void RecordingSwitchView::addQuality(QVBoxLayout* column) {
  quality_ = new QComboBox;
  quality_->setObjectName("recording quality");
  quality_->setAccessibleName(tr("How large the recorded pictures are"));
  quality_->addItem(tr("Full: as large as the display"), static_cast<int>(Quality::full));
  quality_->addItem(tr("Compact: at most %1 pixels wide").arg(RecordingControls::compactWidth), static_cast<int>(Quality::compact));
  column->addWidget(quality_, 0, Qt::AlignLeft);
  connect(quality_, &QComboBox::activated, this, [this] {
    act([quality = static_cast<Quality>(quality_->currentData().toInt()), now = nowMs_()] { return PersonActions::recordIn(quality, now); });
  });
}

void RecordingSwitchView::look() {
  inBackground(
      queue_, this,
      [nowMs = nowMs_()](const std::stop_token&) { return RecordingCard::read(DataPaths::dataRoot(), nowMs, Calendar::local()); },
      [this](const RecordingCard& card) { show(card); });
}

void RecordingSwitchView::act(std::function<PersonActions::Failure()> deed) {
  ++pendingDeeds_;
  inBackground(
      queue_, this, [deed = std::move(deed)](const std::stop_token&) { return deed(); },
      [this](const PersonActions::Failure& failure) {
        --pendingDeeds_;
        told_->setText(Widgets::qt(failure.value_or("")));
        told_->setVisible(failure.has_value());
        look();
      });
}

void RecordingSwitchView::show(const RecordingCard& card) {
  line_->setText(Widgets::qt(card.line));
  Widgets::setWarning(line_, card.isWarning);
  if (pendingDeeds_ == 0) quality_->setCurrentIndex(quality_->findData(static_cast<int>(card.quality)));
  if (card.isPaused != resume_->isHidden()) return;
  const auto* focus = QApplication::focusWidget();
  const bool hadFocus = focus && (focus == resume_ || pauses_->isAncestorOf(focus));
  pauses_->setVisible(!card.isPaused);
  resume_->setVisible(card.isPaused);
  // What takes the place of the button that was pressed takes the keyboard too.
  if (hadFocus) (card.isPaused ? resume_ : pauses_->findChild<QPushButton*>())->setFocus();
}

void RecordingSwitchView::showEvent(QShowEvent* event) {
  QFrame::showEvent(event);
  look();
  poll_.start(pollMs);
}

void RecordingSwitchView::hideEvent(QHideEvent* event) {
  QFrame::hideEvent(event);
  poll_.stop();
}

}  // namespace halvo
