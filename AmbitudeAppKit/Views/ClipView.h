#pragma once

#include <memory>
#include <optional>
#include <string>

#include <QImage>
#include <QTimer>
#include <QWidget>

#include "AmbitudeAppKit/Stores/BackgroundQueue.h"
#include "CaptureShared/Labels/Clips/ClipFrames.h"

namespace halvo {

/// A clip that plays. Space pauses, the arrow keys look at single frames; a frame is decoded when it is to be shown, off the main thread.
class ClipView : public QWidget {
  Q_OBJECT

 public:
  explicit ClipView(QWidget* parent = nullptr);

  struct Clip {
    std::filesystem::path ffmpeg = {}, file = {};
    double fps = 10;
    int frameCount = 0;
  };
  /// From its beginning, in place of any other.
  void play(const Clip& clip);
  /// Nothing is shown or decoded any more.
  void stop();
  void pause();
  void togglePause();
  /// Looks at another frame, and pauses; playing goes on from where the clip stood.
  void step(int by);

  bool isPlaying() const { return isPlaying_; }
  int frameShown() const { return shown_; }  ///< from 0; -1 before the first
  QSize minimumSizeHint() const override;

 signals:
  /// The clip can't be played: in a person's words.
  void failed(const QString& words);

 protected:
  void paintEvent(QPaintEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  struct Answer {
    std::optional<std::string> picture = {};
    std::string failure = {};
  };
  void ask(int frame);
  void take(int frame, Answer answer);
  void goOn();
  void setPlaying(bool isPlaying);

  std::shared_ptr<ClipFrames> frames_;
  QSize size_;              ///< of the pictures
  QImage picture_;
  int frameCount_ = 0;
  int shown_ = -1;
  int stands_ = 0;          ///< where playing goes on: behind a detour it differs from what is shown
  bool isPlaying_ = false;
  bool isAsked_ = false;    ///< one frame at a time
  std::optional<int> next_;  ///< wanted when that one has come
  QTimer pace_;
  BackgroundQueue queue_;
};

}  // namespace halvo
