// Everything that can be taken from the programs, each taken from a household of its own, all at once: they say so once, wait, resume, end
// promptly, and what they had is whole.

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <list>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>

#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/EventLog/EventLogWriter.h"
#include "CaptureShared/EventLog/JSONLAppend.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Signals/Schema.h"
#include "CaptureShared/Signals/SignalsReader.h"
#include "tests/support/Eventually.h"
#include "tests/support/Household.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestWindow.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using test::eventually;
using test::Household;

constexpr std::array agents{"Signals", "ClassifierVerify", "CoachDriver"};
constexpr std::int64_t seedMs = 1'700'000'000'000;
constexpr const char* malformedConfig = "{\"env\": {";
constexpr const char* seededVerdict = R"({"at":"2023-11-14T17:13:20.000-05:00","state":"ON_TASK"})";

fs::path configFile(const Household& house) { return house.home() / "Library/Application Support/AmbitCapture/config.json"; }
std::int64_t nowMs() { return Clock::system().nowMs(); }
void overwrite(const fs::path& file, std::string_view bytes) {
  const FileHandle handle(::open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  ASSERT_EQ(::write(handle.fd(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size())) << file;
}

/// One thing that goes wrong, and how it is mended.
struct Trouble {
  const char* name;
  std::function<void(Household&)> begin;
  std::function<void(Household&)> mend = {};
  std::map<std::string, std::string> says;       ///< by program, a part of its one line
  std::function<void(Household&)> later = {};    ///< in place of `begin` once the programs run
  bool isRootGone = false;                       ///< `halvo declare` refuses too
  bool isOnSmallDisk = false;                    ///< the data root is a disk of 1 MiB
  const char* whyNot = "";                       ///< a part of what `halvo declare` then says
};

/// A household in trouble.
class Case {
 public:
  Case(const Trouble& which, const fs::path& work, const test::Desktop& desktop) : trouble(which), house(HALVO_BIN, work, desktop) {}

  void seed() {
    EventLogWriter::append({.tsMs = seedMs, .type = "task_declared", .detail = JSONObject{{"task", "write the essay"}}},
                           root / "io-layer/events.jsonl");
    JSONLAppend::append(std::string_view(seededVerdict), root / "checker-log.jsonl");
    seededEvents = readFile(root / "io-layer/events.jsonl");
    SQLiteDB db(root / "signals.sqlite", SQLiteDB::Role::owner);
    ASSERT_TRUE(Schema::createAll(db));
    db.insert("INSERT INTO ticks (ts_ms, frontmost_app) VALUES (?, ?)", {seedMs, std::string("Seed")});
  }
  /// Ends a log where a page of the disk ends, so that a full one takes no further byte of it.
  void fillLastPage(const fs::path& log) const {
    constexpr std::size_t page = 4096;
    const std::string frame = R"({"at":"2023-11-14T17:13:20.000-05:00","state":"ON_TASK","kind":"event","type":"ui_opened",)"
                              R"("ts_ms":1700000000000,"source":"app","detail":{"pad":""}})";
    const auto used = (fs::file_size(log) + frame.size() + 1) % page;
    JSONLAppend::append(std::string_view(std::string(frame).insert(frame.size() - 3, page - used, 'p')), log);
  }
  void startAgents() {
    for (const auto* agent : agents) {
      linesBefore[agent] = house.logLines(agent).size();
      house.start(agent);
    }
  }
  /// What an agent has said since it was started.
  std::vector<std::string> said(const std::string& agent) const {
    auto lines = house.logLines(agent);
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(linesBefore.at(agent)));
    return lines;
  }
  long countSaid(const std::string& agent, const std::string& part) const {
    const auto lines = said(agent);
    return std::count_if(lines.begin(), lines.end(), [&](const std::string& line) { return line.find(part) != std::string::npos; });
  }
  /// SIGTERM to all three.
  void expectPromptEnd(const char* when, double& slowestSec) {
    const auto asked = std::chrono::steady_clock::now();
    for (const auto* agent : agents) house.program(agent).signal(SIGTERM);
    for (const auto* agent : agents) {
      const auto status = house.program(agent).wait(5);
      EXPECT_EQ(status, 0) << agent << ' ' << when;
      const std::chrono::duration<double> took = std::chrono::steady_clock::now() - asked;
      EXPECT_LT(took.count(), 1) << agent << ' ' << when;
      slowestSec = std::max(slowestSec, took.count());
    }
  }
  /// No line twice, but for those that tell of work done. Whoever is started says it anew.
  void expectEachLineOnce() const {
    for (const auto* agent : agents) {
      std::map<std::string, int> times;
      for (auto line : said(agent)) {
        if (line.starts_with("20") && line.size() > 21) line.erase(0, 21);  // its time
        // A consultation has its line each, however it ends; a machine this busy makes a display late now and then, and that ends.
        const auto has = [&](const char* part) { return line.find(part) != line.npos; };
        const bool isWork = line.starts_with("judged ") || has("model integrity (#986): ") || has(" usage: ") || has("layer3 gate ") ||
                            has("layer3: nothing holds") || has("the display didn't answer") || has("is there again");
        EXPECT_TRUE(isWork || ++times[line] == 1) << agent << ": " << line;
      }
    }
  }
  std::optional<SignalsReader::TickRow> newestSample() const {
    try {
      return SignalsReader(root / "signals.sqlite").latestTick();
    } catch (const SignalsReaderError&) {
      return std::nullopt;
    }
  }
  /// A sample that knows what the trouble hid, made after it.
  bool isSampled() const {
    const auto sample = newestSample();
    return sample && sample->tsMs > mendedMs && sample->frontmostApp == "Gedit";
  }
  /// The window was judged, in the trouble or after it.
  bool isJudged() const {
    const auto verdicts = house.verdicts();
    return std::any_of(verdicts.begin(), verdicts.end(), [&](const ClassifierTick& verdict) {
      return ISO8601::parse(verdict.at).value_or(0) > mendedMs && verdict.frontmostApp == "Gedit";
    });
  }
  /// What was there before is still there, and what came is whole.
  void expectNothingIsDamaged() const {
    const auto events = readFile(root / "io-layer/events.jsonl"), verdicts = readFile(root / "checker-log.jsonl");
    EXPECT_TRUE(events.starts_with(seededEvents));
    EXPECT_TRUE(verdicts.starts_with(seededVerdict));
    for (const auto& text : {events, verdicts}) {
      EXPECT_TRUE(text.ends_with('\n'));
      for (const auto line : Text::split(text, '\n')) EXPECT_TRUE(line.empty() || JSONValue::parse(line)) << line;
    }
    EXPECT_TRUE(trouble.name != std::string_view("malformed-config") || readFile(configFile(house)) == malformedConfig);
    int sound = 0;
    for (const auto& entry : fs::directory_iterator(root)) {
      const auto name = entry.path().filename().string();
      if (!name.starts_with("signals.sqlite") || name.find("-wal") != name.npos || name.find("-shm") != name.npos) continue;
      if (name != "signals.sqlite") {
        EXPECT_NE(readFile(entry.path()).find("xxxx"), std::string::npos) << "kept: " << name;
        continue;
      }
      SQLiteDB db(entry.path(), SQLiteDB::Role::reader);
      auto check = db.prepare("PRAGMA integrity_check");
      sound += check.step() && check.optionalText(0) == "ok";
    }
    EXPECT_EQ(sound, 1);
    const bool wasSetAside = trouble.name == std::string_view("corrupt-before") || trouble.name == std::string_view("corrupt-while");
    const SignalsReader reader(root / "signals.sqlite");
    EXPECT_EQ(reader.latestTick(seedMs).has_value(), !wasSetAside) << "the row from before";
  }
  std::string output(const std::string& command, const std::vector<std::string>& words, int& status) {
    const auto file = house.work() / "tmp/output";
    const FileHandle handle(::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    status = house.run(command, words, handle.fd());
    return readFile(file);
  }

  Trouble trouble;
  Household house;
  fs::path root = house.dataRoot();
  std::string seededEvents;
  std::map<std::string, std::size_t> linesBefore;
  std::int64_t mendedMs = 0;
  bool wasJudged = false;  ///< the trouble did not keep it from being judged, so nothing new is due
};

void writeConfig(const Household& house, std::string_view text) {
  fs::create_directories(configFile(house).parent_path());
  writeFileAtomically(configFile(house), text);
}
void fillUp(const fs::path& root) {
  const FileHandle filler(::open((root / "filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  for (std::size_t size = 65536; size > 0; size /= 2) {
    const std::string block(size, 'x');
    while (::write(filler.fd(), block.data(), size) > 0) {
    }
  }
}
void mountSmallDisk(const fs::path& root) {
  if (::mount("tmpfs", root.c_str(), "tmpfs", 0, "size=1m,mode=0700") != 0)
    throw std::system_error(errno, std::generic_category(), "mount");
}
void setReadOnly(const fs::path& root, bool isReadOnly) {
  if (::mount("tmpfs", root.c_str(), "tmpfs", MS_REMOUNT | (isReadOnly ? MS_RDONLY : 0), "size=1m") != 0)
    throw std::system_error(errno, std::generic_category(), "remount");
}

TEST(Troubles, eachIsSaidOnceAndOutlived) {
  // Mounts of our own, which go with this process, so that even root meets a disk that takes nothing.
  const bool canMount = ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  if (!canMount) std::printf("no mounts for this account: a read-only and a full disk are not shown\n");
  test::Desktop desktop;
  test::XServer otherScreen;
  test::TestWindow editor(desktop.screen.display(), {.title = "the essay", .className = "Gedit", .text = "the essay", .textScale = 2});
  editor.activate();
  const test::TemporaryFolder folder;

  const auto model = [](const char* fault) {
    return [fault](Household& house) { house.startModel({"--fault", fault}); };
  };
  const auto mendModel = [](Household& house) {
    house.program("PracticeModel").signal(SIGKILL);
    house.program("PracticeModel").wait(5);
    house.startModel();
  };
  const std::map<std::string, std::string> noModel{{"ClassifierVerify", "the local model gave no judgment"},
                                                   {"CoachDriver", "layer3 gate failed: "}};
  constexpr const char *unconfigured = "no data root configured yet", *unmounted = "isn't mounted", *notJSON = "config is not valid JSON";
  const std::vector<Trouble> troubles{
      {.name = "no-display",
       .begin =
           [&](Household& house) {
             otherScreen.crash();
             house.environment["DISPLAY"] = otherScreen.display();
           },
       .mend = [&](Household&) { otherScreen.restart(); },
       .says = {{"Signals", "is not there — windows, input and pointer stay unknown"}}},
      {.name = "no-bus",
       .begin =
           [](Household& house) {
             house.environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=" + (house.work() / "tmp/bus").string();
           },
       .mend =
           [&](Household& house) {
             auto path = desktop.bus.address().substr(desktop.bus.address().find('=') + 1);
             fs::create_symlink(path.substr(0, path.find(',')), house.work() / "tmp/bus");
           },
       .says = {{"Signals", "no session bus"}}},
      {.name = "unconfigured",
       .begin = [](Household& house) { house.environment.erase("AMBITCAP_DATA_ROOT"); },
       .mend = [](Household& house) { writeConfig(house, JSONValue(JSONObject{{"dataRoot", house.dataRoot().string()}}).dump()); },
       .says = {{"Signals", unconfigured}, {"ClassifierVerify", unconfigured}, {"CoachDriver", unconfigured}},
       .isRootGone = true,
       .whyNot = unconfigured},
      {.name = "missing",
       .begin = [](Household& house) { fs::rename(house.dataRoot(), house.work() / "tmp/away"); },
       .mend = [](Household& house) { fs::rename(house.work() / "tmp/away", house.dataRoot()); },
       .says = {{"Signals", unmounted}, {"ClassifierVerify", unmounted}, {"CoachDriver", unmounted}},
       .isRootGone = true,
       .whyNot = unmounted},
      {.name = "read-only",
       .begin = [](Household& house) { setReadOnly(house.dataRoot(), true); },
       .mend = [](Household& house) { setReadOnly(house.dataRoot(), false); },
       .says = {{"Signals", "takes no sample"}, {"ClassifierVerify", "can't be read"}, {"CoachDriver", "ead-only file system"}},
       .isRootGone = true,
       .isOnSmallDisk = true,
       .whyNot = "ead-only file system"},
      {.name = "full",
       .begin = [](Household& house) { fillUp(house.dataRoot()); },
       .mend = [](Household& house) { fs::remove(house.dataRoot() / "filler"); },
       .says = {{"Signals", "the disk is full or failing"},
                {"ClassifierVerify", "can't be read"},
                {"CoachDriver", "No space left on device"}},
       .isRootGone = true,
       .isOnSmallDisk = true,
       .whyNot = "not recorded: "},
      {.name = "malformed-config",
       .begin = [](Household& house) { writeConfig(house, malformedConfig); },
       .says = {{"Signals", notJSON}, {"ClassifierVerify", notJSON}, {"CoachDriver", notJSON}}},
      {.name = "corrupt-before",
       .begin = [](Household& house) { overwrite(house.dataRoot() / "signals.sqlite", std::string(4096, 'x')); },
       .says = {{"Signals", "is damaged — set aside as"}}},
      {.name = "corrupt-while",
       .begin = {},
       .says = {{"Signals", "is damaged — set aside as"}},
       .later =
           [](Household& house) {
             for (const auto* file : {"signals.sqlite", "signals.sqlite-wal"})
               overwrite(house.dataRoot() / file, std::string(fs::file_size(house.dataRoot() / file), 'x'));
           }},
      {.name = "server-hangs", .begin = model("hang"), .mend = mendModel, .says = {}},
      {.name = "server-garbage", .begin = model("garbage"), .mend = mendModel, .says = noModel},
      {.name = "server-dies", .begin = model("die-mid-stream"), .mend = mendModel, .says = noModel},
      {.name = "server-absent",
       .begin = [](Household& house) { house.program("PracticeModel").end(); },
       .mend = [](Household& house) { house.startModel(); },
       .says = {{"ClassifierVerify", "REFUSING TO JUDGE"}, {"CoachDriver", "layer3 gate failed: "}}}};

  std::list<Case> cases;
  for (const auto& trouble : troubles) {
    SCOPED_TRACE(trouble.name);
    if (trouble.isOnSmallDisk && !canMount) continue;
    auto& one = cases.emplace_back(trouble, folder.path() / trouble.name, desktop);
    if (trouble.isOnSmallDisk) mountSmallDisk(one.root);
    one.seed();
    if (trouble.name == std::string("full"))
      for (const auto* log : {"io-layer/events.jsonl", "checker-log.jsonl"}) one.fillLastPage(one.root / log);
    one.house.startModel();
    if (trouble.begin) trouble.begin(one.house);
    one.startAgents();
  }
  for (auto& one : cases)
    if (one.trouble.later) {
      ASSERT_TRUE(eventually([&] { return one.newestSample() && one.newestSample()->tsMs > seedMs; }, 20));
      one.trouble.later(one.house);
    }

  // In the trouble.
  for (auto& one : cases) {
    SCOPED_TRACE(one.trouble.name);
    for (const auto& [agent, part] : one.trouble.says)
      EXPECT_TRUE(eventually([&, &who = agent, &words = part] { return one.countSaid(who, words) > 0; }, 30)) << agent << " says: " << part;
    int status = 0;
    const auto dump = one.output("AmbitudeApp", {"--dump"}, status);
    EXPECT_EQ(status, 0);
    EXPECT_NE(dump.find("--- recent check-ins"), std::string::npos) << dump;
    const auto declared = one.output("halvo", {"declare", "write the essay"}, status);
    EXPECT_EQ(status, one.trouble.isRootGone ? 1 : 0) << declared;
    EXPECT_LE(std::count(declared.begin(), declared.end(), '\n'), one.trouble.later ? 2 : 1) << declared;  // a copy's failure is told too
    EXPECT_NE(declared.find(one.trouble.isRootGone ? one.trouble.whyNot : "declared: "), std::string::npos) << declared;
  }
  // Several turns of each loop later it is still one line, also after a new start.
  double slowestEndSec = 0;
  const auto severalTurns = [] { Clock::system().wait(5, {}); };
  severalTurns();
  for (auto& one : cases) {
    SCOPED_TRACE(one.trouble.name);
    one.expectEachLineOnce();
    one.expectPromptEnd("in the trouble", slowestEndSec);
    one.startAgents();
  }
  severalTurns();

  // And out of it.
  for (auto& one : cases) {
    one.wasJudged = one.isJudged();
    one.mendedMs = nowMs();
    if (one.trouble.mend) one.trouble.mend(one.house);
  }
  test::TestWindow otherEditor(otherScreen.display(), {.title = "the essay", .className = "Gedit", .text = "the essay", .textScale = 2});
  otherEditor.activate();
  for (auto& one : cases) {
    SCOPED_TRACE(one.trouble.name);
    EXPECT_TRUE(eventually([&] { return one.isSampled(); }, 20)) << "samples go on";
    EXPECT_TRUE(one.wasJudged || eventually([&] { return one.isJudged(); }, 30)) << "verdicts go on";
    // A conversation begins with the first coach that a data root sees: what was said before is not for it.
    EXPECT_TRUE(eventually([&] { return one.countSaid("CoachDriver", "the coach runs on") > 0; }, 20));
    EXPECT_TRUE(eventually([&] { return fs::exists(one.root / "io-layer/layer3-floor.json"); }, 20));
    int status = 0;
    const auto sentMs = nowMs();
    const auto sent = one.output("halvo", {"say", "hello"}, status);
    EXPECT_EQ(status, 0) << sent;
    EXPECT_TRUE(eventually([&] { return one.house.messageTime("coach", sentMs).has_value(); }, 20)) << "the coach answers";
  }
  for (auto& one : cases) {
    SCOPED_TRACE(one.trouble.name);
    one.expectEachLineOnce();
    one.expectPromptEnd("after it", slowestEndSec);
    one.expectNothingIsDamaged();
    if (testing::Test::HasFailure())
      for (const auto* agent : agents)
        for (const auto& line : one.house.logLines(agent)) std::fprintf(stderr, "%s %s: %s\n", one.trouble.name, agent, line.c_str());
    ::umount2(one.root.c_str(), MNT_DETACH);  // fails where no disk was mounted
  }
  std::printf("slowest end after SIGTERM: %.0f ms\n", slowestEndSec * 1000);
}

}  // namespace
}  // namespace halvo
