#pragma once

#include <memory>
#include <utility>

#include <QCoreApplication>
#include <QMetaObject>
#include <QPointer>

#include "AmbitudeAppKit/Stores/BackgroundQueue.h"

namespace halvo {

/// Runs `work` on a queue and hands what it answers to `deliver` on the main thread, as long as `owner` lives.
template <class Work, class Deliver>
void inBackground(BackgroundQueue& queue, QObject* owner, Work work, Deliver deliver) {
  queue.post([owner = QPointer<QObject>(owner), work = std::move(work), deliver = std::move(deliver)](const std::stop_token& stop) mutable {
    auto answer = std::make_shared<decltype(work(stop))>(work(stop));
    if (stop.stop_requested()) return;
    QMetaObject::invokeMethod(
        qApp,
        [owner, answer, deliver] {
          if (owner) deliver(std::move(*answer));
        },
        Qt::QueuedConnection);
  });
}

}  // namespace halvo
