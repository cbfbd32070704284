#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "AmbitudeAppKit/Live/LiveLog.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "tests/support/Household.h"
#include "tests/support/TestWindow.h"
#include "tools/Scene/RemoteCoach.h"

namespace halvo {

/// One afternoon in a minute, played on a private desktop with the real programs: an essay is declared, a video site is opened, Lark asks, the person
/// answers with what they are doing now, and the session locks. With a remote coach, its service dies in the middle of one more reply. What is
/// believed is only what the files say.
class Scene {
 public:
  /// What has just come true, or been said.
  enum class Step { onTask, notAligned, asked, said, answered, fellBack, quiet, taught, locked };
  struct Options {
    std::filesystem::path bin = {};                              ///< holds the programs
    std::filesystem::path work = {};                             ///< everything is written under it; emptied first
    bool isSilent = false;                                       ///< prints nothing
    bool isQuiet = false;                                        ///< they ask to be left alone, and teach Lark something
    bool isRemote = false;                                       ///< the coach runs on a remote service, which dies on the way
    std::string windowText = "Up next: twenty more cats. 1,204,331 views";  ///< painted on the video site
    std::function<void(Step, test::Household&)> between = {};    ///< called after each step
    Environment more = {};                                       ///< set for every program, over what the scene sets
  };
  explicit Scene(Options options);

  /// Plays it; false when a step did not come true in its time. Prints as it goes.
  bool play();

  std::filesystem::path dataRoot() const { return options_.work / "data"; }
  /// What the remote service was sent; nothing without one.
  std::vector<test::RemoteService::Request> sentOut() const;

 private:
  void prepare();
  void loseTheService();
  void beLeftAlone();
  void teach();
  /// Runs one of our commands to its end and shows what it printed. Throws `std::runtime_error` when it fails.
  void command(const std::string& program, const std::vector<std::string>& arguments);
  /// Shows what happens until `holds` does; throws `std::runtime_error` naming `what` when it does not in `seconds`.
  void expect(const std::string& what, double seconds, const std::function<bool()>& holds);
  void reached(Step step);
  void showNews();
  void print(const std::string& line) const;
  /// The facts that the scene was played for, read back from the files.
  std::vector<std::pair<const char*, bool>> facts() const;
  std::vector<std::pair<const char*, bool>> remoteFacts() const;
  std::vector<std::pair<const char*, bool>> quietFacts() const;
  bool verify();

  Options options_;
  Calendar calendar_ = Calendar::local();
  std::unique_ptr<test::Desktop> desktop_;
  std::unique_ptr<test::TestWindow> editor_, videoSite_;
  std::unique_ptr<RemoteCoach> remote_;
  std::unique_ptr<test::Household> household_;
  std::unique_ptr<LiveLog> live_;
};

}  // namespace halvo
