#pragma once

#include <functional>

#include <QWidget>

#include "AmbitudeAppKit/Present/Conversation.h"

namespace halvo {

/// One entry of the conversation. Thinking is folded away until it is asked for; an effect that still holds can be undone.
class ChatEntryView : public QWidget {
  Q_OBJECT

 public:
  ChatEntryView(const Conversation::Entry& entry, const Calendar& calendar, std::function<void(const Conversation::Undo&)> undo,
                QWidget* parent = nullptr);

 private:
  QWidget* bubble(const Conversation::Entry& entry, const Calendar& calendar);
  QWidget* line(const Conversation::Entry& entry, std::function<void(const Conversation::Undo&)> undo);
};

}  // namespace halvo
