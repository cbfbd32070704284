// From the start of the program to the first paint of its window, and to the day being on it, on a year of logs. Budget: 400 ms to the
// paint.
// And what the main thread has to do with files while somebody uses the window. Budget: 5 ms for any of them.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>

#include <QApplication>
#include <QEvent>

#include <fmt/format.h>
#include <sys/resource.h>

#include "AmbitudeAppKit/Views/DesktopApplication.h"
#include "AmbitudeAppKit/Views/MainWindow.h"
#include "AmbitudeAppKit/Views/Theme.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Spawn.h"
#include "CaptureShared/Signals/Schema.h"
#include "app/DesktopNeeds.h"
#include "benches/MainThreadFiles.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/XServer.h"

namespace {

using namespace halvo;
namespace fs = std::filesystem;

constexpr std::int64_t yearMs = std::int64_t{365} * 86'400'000;
constexpr int ticks = 500'000, events = 200'000, samples = 100'000;  // of a year; samples of the last two days

/// A data root whose year ends now.
class Year {
 public:
  Year() {
    fs::create_directories(root() / "io-layer");
    const auto nowMs = Clock::system().nowMs();
    const auto calendar = Calendar::local();
    std::ofstream log(root() / "checker-log.jsonl"), rows(root() / "io-layer/events.jsonl");
    for (int n = 0; n < ticks; ++n)
      log << fmt::format(
          R"({{"at":"{}","declared_task":"the essay","frontmost_app":"firefox",)"
          R"("reason":"they read row {} of a page on tides","state":"NOT_ALIGNED"}})",
          calendar.isoMillis(nowMs - yearMs / ticks * (ticks - n)), n)
          << '\n';
    for (int n = 0; n < events; ++n)
      rows << fmt::format(R"({{"detail":{{"role":"user","text":"row {}"}},"kind":"event","source":"coach-core",)"
                          R"("ts_ms":{},"type":"app_chat_message"}})",
                          n, nowMs - yearMs / events * (events - n))
           << '\n';
    SQLiteDB db(DataPaths::signalsDB(root()), SQLiteDB::Role::owner);
    Schema::createAll(db);
    db.transaction([&] {
      for (int n = 0; n < samples; ++n)
        db.insert("INSERT INTO ticks (ts_ms, frontmost_app, idle_any_sec) VALUES (?, ?, ?)",
                  {nowMs - std::int64_t{1'500} * (samples - n), std::string(n / 400 % 2 ? "firefox" : "gedit"), 1.0});
    });
    ::setenv("HOME", home_.path().c_str(), 1);
    ::setenv("AMBITCAP_DATA_ROOT", root().c_str(), 1);
  }
  fs::path root() const { return home_.path() / "data"; }

 private:
  test::TemporaryFolder home_;
};

/// Notes how long the main thread was held by any one event.
class Application : public QApplication {
 public:
  using QApplication::QApplication;
  bool notify(QObject* receiver, QEvent* event) override {
    const auto begun = std::chrono::steady_clock::now();
    const bool isDone = QApplication::notify(receiver, event);
    longestMs = std::max(longestMs, std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begun).count());
    return isDone;
  }
  double longestMs = 0;
};

class FirstPaint : public QObject {
 public:
  using QObject::QObject;
  bool eventFilter(QObject*, QEvent* event) override {
    if (event->type() == QEvent::Paint) QMetaObject::invokeMethod(qApp, [] { QApplication::quit(); }, Qt::QueuedConnection);
    return false;
  }
};

/// What the measured programs have used of the processor so far, all threads: on a busy machine that tells more than the clock.
double childrensMs() {
  rusage used{};
  ::getrusage(RUSAGE_CHILDREN, &used);
  const auto ms = [](const timeval& t) { return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_usec) / 1e3; };
  return ms(used.ru_utime) + ms(used.ru_stime);
}

/// The program of one measurement: ends at the first paint, or once the day has been painted, and prints the longest hold of the main
/// thread.
int show(int argc, char** argv, bool untilTheDay) {
  Application application(argc, argv);
  Theme::install(application, Theme::Mode::automatic);
  DataPaths::ensureSubdirsExist();
  DesktopApplication desktop({.root = DataPaths::dataRoot(), .nowMs = Clock::system().nowMs}, Pages::all(desktopNeeds()));
  FirstPaint paint;
  auto* page = desktop.window().page(0);
  const auto watch = [&] {
    page->installEventFilter(&paint);
    page->update();
  };
  if (untilTheDay)
    QObject::connect(&desktop.feed(), &DayFeed::nowChanged, page, watch);
  else
    watch();
  desktop.show();
  QApplication::exec();
  std::printf("longest %.1f\n", application.longestMs);
  std::fflush(stdout);
  std::_Exit(0);
}

/// The year and the display that every measurement shares.
struct Scene {
  Year year;
  test::XServer server;
  Scene() {
    ::setenv("DISPLAY", server.display().c_str(), 1);
    ::setenv("QT_QPA_PLATFORM", "xcb", 1);
    // No service of this session's has a part in it.
    ::setenv("DBUS_SESSION_BUS_ADDRESS", "disabled:", 1);
    ::setenv("XDG_RUNTIME_DIR", year.root().parent_path().c_str(), 1);
  }
};
const Scene& scene() {
  static const Scene one;
  return one;
}

void start(benchmark::State& state, const char* until) {
  scene();
  double longest = 0;
  const auto before = childrensMs();
  for (auto _ : state) {
    const auto ran = Spawn::capture(fs::read_symlink("/proc/self/exe"), {until}, "", 30);
    const auto at = ran ? ran->standardOutput.find("longest ") : std::string::npos;
    if (at == std::string::npos) return state.SkipWithError("no window");
    longest = std::max(longest, std::atof(ran->standardOutput.c_str() + at + 8));
  }
  state.counters["longest_hold_ms"] = longest;
  state.counters["processor_ms"] = (childrensMs() - before) / static_cast<double>(state.iterations());
}
void startToFirstPaint(benchmark::State& state) {
  start(state, "--until-paint");
  state.counters["budget_ms"] = 400;
}
BENCHMARK(startToFirstPaint)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
void startToTheDayShown(benchmark::State& state) { start(state, "--until-day"); }
BENCHMARK(startToTheDayShown)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);

/// A declaration, and a look at each page.
void useTheWindow(const test::XServer& server) {
  const auto pause = [] { std::this_thread::sleep_for(std::chrono::milliseconds(300)); };
  server.input({"search", "--sync", "--onlyvisible", "--name", "^Halvo$", "windowactivate", "--sync"});
  pause();
  server.input({"key", "Tab"});
  server.input({"type", "write the essay"});
  server.input({"key", "Return"});
  for (int page = 2; page <= 9; ++page) {
    server.input({"key", "ctrl+" + std::to_string(page)});
    pause();
  }
}

/// The files that are the person's or ours, and those that the libraries read for themselves: fonts and their caches, icons, programs. Of
/// each its least run counts: being traced, a call waits for whatever else the machine does.
void mainThreadFiles(benchmark::State& state) {
  const auto& [year, server] = scene();
  const auto program = fs::read_symlink("/proc/self/exe").parent_path() / "AmbitudeWindow";
  std::map<std::string, double> least;
  for (auto _ : state)
    for (const auto& [file, use] : MainThreadFiles::trace(program, [&] { useTheWindow(server); })) {
      const auto known = least.emplace(file, use.ms).first;
      known->second = std::min(known->second, use.ms);
    }
  const auto support = (year.root().parent_path() / "Library").string();
  std::pair<double, std::string> ours, others;
  int count = 0;
  for (const auto& [file, ms] : least) {
    const bool isOurs = file.starts_with(year.root().string()) || file.starts_with(support);
    count += isOurs;
    auto& worst = isOurs ? ours : others;
    worst = std::max(worst, {ms, file});
  }
  state.SetLabel("ours: " + fs::path(ours.second).filename().string() + "; of the libraries: " + others.second);
  state.counters["longest_file_ms"] = ours.first;
  state.counters["longest_of_libraries_ms"] = others.first;
  state.counters["files"] = count;
  state.counters["budget_ms"] = 5;
  if (readFile(DataPaths::events(year.root())).find("task_declared") == std::string::npos) state.SkipWithError("nothing was declared");
}
BENCHMARK(mainThreadFiles)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(4);

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && std::strncmp(argv[1], "--until-", 8) == 0) return show(argc, argv, std::strcmp(argv[1], "--until-day") == 0);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
