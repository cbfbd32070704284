#pragma once

#include <optional>
#include <utility>

#include <QObject>
#include <QString>

namespace halvo {

/// One notification through the desktop's own service. Without a service nothing is shown and nothing fails.
class DesktopNotifier : public QObject {
  Q_OBJECT

 public:
  /// Takes the place of the one that stands, so that they never pile up.
  void notify(const QString& title, const QString& words);
  /// Takes it away: it has been seen or answered.
  void withdraw();

 signals:
  /// The person clicked on it.
  void chosen();

 private slots:
  void onAction(unsigned id, const QString& action);
  void onClosed(unsigned id, unsigned reason);

 private:
  using Words = std::pair<QString, QString>;
  void send(const Words& words);
  void listen();

  unsigned standing_ = 0;                  ///< 0: none
  bool isSending_ = false;                 ///< the service hasn't said yet which one it is
  std::optional<Words> next_;              ///< to be shown once it has
  bool isUnwanted_ = false;                ///< to be taken away once it has
  bool isListening_ = false;
};

}  // namespace halvo
