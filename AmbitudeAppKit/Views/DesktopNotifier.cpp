#include "AmbitudeAppKit/Views/DesktopNotifier.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QVariantMap>

namespace halvo {

void DesktopNotifier::notify(const QString& title, const QString& words) {
  auto call = QDBusMessage::createMethodCall("org.freedesktop.Notifications", "/org/freedesktop/Notifications",
                                             "org.freedesktop.Notifications", "Notify");
  // The service reads a little markup in the body.
  call << QString("Halvo") << last_ << QString("halvo") << title << words.toHtmlEscaped() << QStringList() << QVariantMap() << -1;
  auto* watcher = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call));
  QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher, [this, watcher] {
    const QDBusPendingReply<unsigned> reply = *watcher;
    if (reply.isValid()) last_ = reply.value();
    watcher->deleteLater();
  });
}

}  // namespace halvo
