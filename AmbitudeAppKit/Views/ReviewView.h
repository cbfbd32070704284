#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>

#include "AmbitudeAppKit/Present/ReviewDesk.h"
#include "AmbitudeAppKit/Stores/BackgroundQueue.h"
#include "AmbitudeAppKit/Views/Page.h"
#include "CaptureShared/Labels/Clips/MomentClips.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QSpinBox;
class QTableWidget;
class QVBoxLayout;

namespace halvo {

class ClipView;

/// Past moments, answered by the person who was there: blind first, by single keys.
class ReviewView : public Page {
  Q_OBJECT

 public:
  /// What the page needs of the machine; called off the main thread.
  struct Operations {
    ReviewDesk::Config desk = {};
    std::function<MomentClip(std::int64_t frameMs, const std::stop_token&)> makeClip = {};  ///< throws: why there is no clip
    std::function<void()> dropClip = {};                                                    ///< nothing of it is left on the disk
    std::function<std::filesystem::path()> ffmpeg = {};                                     ///< throws when there is none
  };
  explicit ReviewView(Operations operations, QWidget* parent = nullptr);
  /// Leaves no clip behind.
  ~ReviewView() override;
  void shown() override;

 protected:
  void keyPressEvent(QKeyEvent* event) override;
  /// The clip stops with the page, and its file goes; it is made again when the page comes back.
  void hideEvent(QHideEvent* event) override;
  void showEvent(QShowEvent* event) override;

 private:
  using Work = std::function<ReviewPage(ReviewDesk&, const std::stop_token&)>;
  enum class After { look, act };

  void addStart(QVBoxLayout* column);
  void addMoment(QVBoxLayout* column);
  void addQuestion(QVBoxLayout* column);
  void addEnd(QVBoxLayout* column);

  /// Does something with the review, off the main thread, and shows what came of it. One thing at a time: a key pressed meanwhile counts
  /// for no later question.
  void run(Work work, After after);
  void show(const ReviewPage& page, After after);
  void showReveal(const ReviewPage& page);
  void showQuestion();
  void showEnd(const ReviewPage& page);
  void choose(std::size_t place);
  void pass();
  void setRevising(bool isRevising);
  void draw();
  /// Whether the review that is open may be given up for another; asks the person.
  bool mayGiveUp();
  bool isAsking() const;
  std::vector<ReviewPage::Choice> choices() const;

  /// The clip of the moment that is shown, or none.
  void followClip();
  void makeClip(std::int64_t frameMs);
  void showClip(bool isThere);
  void dropClip();

  Operations operations_;
  ReviewPage page_;
  bool isBusy_ = false, isRevising_ = false;
  bool isChoosing_ = false;  ///< another review, while one is open
  std::optional<std::int64_t> clipMs_;  ///< the instant of the clip that is there or is being made

  QVBoxLayout* column_ = nullptr;
  QLabel *progress_ = nullptr, *failure_ = nullptr, *notice_ = nullptr, *busy_ = nullptr;
  QWidget *start_ = nullptr, *moment_ = nullptr, *reveal_ = nullptr, *question_ = nullptr, *end_ = nullptr;
  QComboBox* mode_ = nullptr;
  QSpinBox* limit_ = nullptr;
  QCheckBox* withoutFootage_ = nullptr;
  QLabel *when_ = nullptr, *declared_ = nullptr, *inFront_ = nullptr, *clipWords_ = nullptr;
  ClipView* clip_ = nullptr;
  QVBoxLayout *revealed_ = nullptr, *asked_ = nullptr;
  QLineEdit* comment_ = nullptr;
  QPushButton *pass_ = nullptr, *revise_ = nullptr, *another_ = nullptr;
  QLabel *summary_ = nullptr, *scoreLines_ = nullptr;
  QTableWidget* score_ = nullptr;

  std::stop_source clipEnd_;
  std::shared_ptr<ReviewDesk> desk_;  ///< used by `work_` alone
  BackgroundQueue work_, clips_{BackgroundQueue::AtEnd::finish};
};

}  // namespace halvo
