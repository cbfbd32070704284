#include "AmbitudeAppKit/Views/DesktopNotifier.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QVariantMap>

namespace halvo {

namespace {

constexpr auto service = "org.freedesktop.Notifications", path = "/org/freedesktop/Notifications";
constexpr auto clicked = "default";  // what the service calls a click on the notification itself

QDBusMessage callOf(const QString& method) { return QDBusMessage::createMethodCall(service, path, service, method); }

}  // namespace

void DesktopNotifier::notify(const QString& title, const QString& words) {
  isUnwanted_ = false;
  if (isSending_) next_ = {title, words};
  else send({title, words});
}

void DesktopNotifier::send(const Words& words) {
  listen();
  auto call = callOf("Notify");
  // The service reads a little markup in the body.
  call << QString("Halvo") << standing_ << QString("halvo") << words.first << words.second.toHtmlEscaped();
  call << QStringList{clicked, tr("Open")} << QVariantMap{{"desktop-entry", "halvo"}} << -1;
  isSending_ = true;
  auto* watcher = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call), this);
  connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
    watcher->deleteLater();
    isSending_ = false;
    const QDBusPendingReply<unsigned> reply = *watcher;
    if (reply.isValid()) standing_ = reply.value();
    if (std::exchange(isUnwanted_, false)) return withdraw();
    if (const auto next = std::exchange(next_, std::nullopt)) send(*next);
  });
}

void DesktopNotifier::withdraw() {
  next_.reset();
  isUnwanted_ = isSending_;
  if (isSending_ || standing_ == 0) return;
  auto call = callOf("CloseNotification");
  call << std::exchange(standing_, 0);
  QDBusConnection::sessionBus().asyncCall(call);
}

void DesktopNotifier::listen() {
  if (std::exchange(isListening_, true)) return;
  auto bus = QDBusConnection::sessionBus();
  bus.connect(service, path, service, "ActionInvoked", this, SLOT(onAction(unsigned,QString)));
  bus.connect(service, path, service, "NotificationClosed", this, SLOT(onClosed(unsigned,unsigned)));
}

void DesktopNotifier::onAction(unsigned id, const QString& action) {
  if (id == standing_ && action == clicked) emit chosen();
}

void DesktopNotifier::onClosed(unsigned id, unsigned) {
  if (id == standing_) standing_ = 0;
}

}  // namespace halvo
