#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <string>

#include "AmbitudeAppKit/Present/MemoryPage.h"
#include "AmbitudeAppKit/Stores/BackgroundQueue.h"
#include "AmbitudeAppKit/Views/Page.h"

class QLabel;
class QPlainTextEdit;
class QVBoxLayout;

namespace halvo {

/// What Lark remembers, the corrections that hold, and the standing notes.
class MemoryView : public Page {
  Q_OBJECT

 public:
  explicit MemoryView(std::filesystem::path root, QWidget* parent = nullptr);
  void shown() override;

 private:
  using Failure = std::optional<std::string>;

  void read();
  void show(const MemoryPage& page);
  void showMemory(const MemoryPage& page);
  void showCorrections(const MemoryPage& page);
  void addNotes(QVBoxLayout* column);
  void saveNotes();
  void forget();
  /// Runs a change off the main thread, calls `done` or tells why it failed, and reads everything anew.
  void change(std::function<Failure()> work, std::function<void()> done = {});
  void tell(const Failure& failure);

  std::filesystem::path root_;
  QVBoxLayout *memory_ = nullptr, *corrections_ = nullptr;
  QLabel* failure_ = nullptr;
  std::map<std::string, QPlainTextEdit*> notes_;
  BackgroundQueue changes_{BackgroundQueue::AtEnd::finish}, reads_;
};

}  // namespace halvo
