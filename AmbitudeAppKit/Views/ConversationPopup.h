#pragma once

#include <QWidget>

#include "AmbitudeAppKit/Views/DayFeed.h"

namespace halvo {

class ConversationView;

/// The small window that Lark asks for. It never takes the keyboard from whoever is typing elsewhere; answering or closing it ends it.
/// Closing is the person's own act and is written down as theirs: an application that ends hides it first.
class ConversationPopup : public QWidget {
  Q_OBJECT

 public:
  explicit ConversationPopup(DayFeed& feed);

  /// The person wishes to see it, asked for or not; it takes the keyboard then.
  void openByPerson();

 protected:
  void closeEvent(QCloseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  void follow();
  void present();
  void end(PersonActions::Dismissal how);

  DayFeed& feed_;
  ConversationView* conversation_ = nullptr;
  std::int64_t presentedMs_ = 0;  ///< the request that was shown last
  std::int64_t endedMs_ = 0;      ///< the request whose end was written
  bool isWished_ = false;
};

}  // namespace halvo
