#pragma once

#include <QString>

namespace halvo {

/// Notifications through the desktop's own service. Without one, nothing is shown and nothing fails.
class DesktopNotifier {
 public:
  /// Replaces the one shown before, so that they never pile up.
  void notify(const QString& title, const QString& words);

 private:
  unsigned last_ = 0;
};

}  // namespace halvo
