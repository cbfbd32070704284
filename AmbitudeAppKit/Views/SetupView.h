#pragma once

#include <functional>
#include <optional>
#include <string>

#include "AmbitudeAppKit/Stores/BackgroundQueue.h"
#include "AmbitudeAppKit/Stores/DataRootSetup.h"
#include "AmbitudeAppKit/Views/Page.h"

class QLabel;
class QLineEdit;
class QPushButton;
class QTimer;
class QVBoxLayout;

namespace halvo {

/// What stands in place of all pages while there is nowhere to record to: the first steps, or the word that the data root is away. It is
/// finished as soon as there is a root, also one that was set up or mounted elsewhere.
class SetupView : public Page {
  Q_OBJECT

 public:
  /// Called off the main thread.
  struct Operations {
    std::function<DataRootSetup::State()> state;
    std::function<void(const std::string& root)> carryOut;  ///< throws `std::exception`s with words for a person
  };
  SetupView(Operations operations, const QString& offeredRoot, DataRootSetup::State state, int lookMs = 3'000, QWidget* parent = nullptr);

 signals:
  void finished();

 private:
  void addFirstSteps(QVBoxLayout* column, const QString& offeredRoot);
  void addAway(QVBoxLayout* column, DataRootSetup::State state);
  void chooseFolder();
  void start();
  void look();
  void tell(const QString& words);

  Operations operations_;
  QLineEdit* root_ = nullptr;
  QPushButton* start_ = nullptr;
  QLabel* told_ = nullptr;
  bool isFinished_ = false, isLooking_ = false;
  BackgroundQueue queue_;
};

}  // namespace halvo
