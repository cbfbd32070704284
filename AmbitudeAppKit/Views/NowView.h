#pragma once

#include "AmbitudeAppKit/Views/DayFeed.h"
#include "AmbitudeAppKit/Views/Page.h"

class QFrame;
class QLabel;
class QLineEdit;
class QPushButton;

namespace halvo {

class DayStripView;

/// The declaration with its clock, one line to change it, quiet, and the day so far.
class NowView : public Page {
  Q_OBJECT

 public:
  explicit NowView(DayFeed& feed, QWidget* parent = nullptr);

 private:
  QFrame* declarationCard();
  QFrame* quietCard();
  QFrame* dayCard();
  void refresh();
  void typed();
  void tell(const PersonActions::Failure& failure);
  void act(DayFeed::Deed deed);

  DayFeed& feed_;
  QLabel *task_ = nullptr, *clock_ = nullptr, *why_ = nullptr, *verdict_ = nullptr, *failure_ = nullptr;
  QLineEdit* line_ = nullptr;
  QLabel* quiet_ = nullptr;
  QPushButton* endQuiet_ = nullptr;
  QWidget* quietChoices_ = nullptr;
  DayStripView* day_ = nullptr;
};

}  // namespace halvo
