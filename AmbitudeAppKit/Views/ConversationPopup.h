#pragma once

#include <QWidget>

#include "AmbitudeAppKit/Views/DayFeed.h"

namespace halvo {

class ConversationView;

/// The small window that Lark asks for. It never takes the keyboard from whoever is typing elsewhere; answering or closing it ends it.
class ConversationPopup : public QWidget {
  Q_OBJECT

 public:
  explicit ConversationPopup(DayFeed& feed);

 protected:
  void closeEvent(QCloseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  void follow();
  void present();

  DayFeed& feed_;
  ConversationView* conversation_ = nullptr;
  std::int64_t presentedMs_ = 0;  ///< the request that was shown last
};

}  // namespace halvo
