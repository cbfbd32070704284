// Passes over real files with a model in the test's hands.

#include <gtest/gtest.h>

#include <algorithm>

#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "AmbitudeCore/Memory/ConsolidationPasses.h"
#include "AmbitudeCore/Memory/DreamLock.h"
#include "AmbitudeCore/Memory/MemoryStore.h"
#include "AmbitudeCore/Memory/MemoryWipeLog.h"
#include "AmbitudeCore/Memory/StandingComparison.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Match.h"
#include "tests/AmbitudeCore/Coach/ScriptedBackend.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

using namespace MemoryConsolidation;

constexpr std::int64_t stepMs = 21'600'000;
constexpr std::int64_t firstMs = 81'667 * stepMs;  // a boundary in November 2025

TEST(MemoryConsolidation, pendingPeriods) {
  const auto starts = [](Due due) {
    due.stepIntervalSec = 10;
    std::vector<std::int64_t> found;
    for (const auto& period : pendingPeriods(due)) {
      EXPECT_EQ(period.endMs, period.startMs + 10'000);
      found.push_back((period.startMs - firstMs) / 1000);
    }
    return found;
  };
  using Starts = std::vector<std::int64_t>;
  const auto at = [](std::int64_t sec) { return firstMs + sec * 1000; };
  EXPECT_EQ(starts({.asOfMs = at(100)}), Starts{});
  EXPECT_EQ(starts({.earliestEventMs = at(3), .asOfMs = at(30)}), (Starts{0, 10, 20}));
  EXPECT_EQ(starts({.earliestEventMs = at(3), .asOfMs = at(29)}), (Starts{0, 10})) << "the present one is not over";
  EXPECT_EQ(starts({.lastDigestedPeriodEndMs = at(20), .earliestEventMs = at(3), .asOfMs = at(45)}), (Starts{20, 30}));
  EXPECT_EQ(starts({.lastDigestedPeriodEndMs = at(40), .asOfMs = at(45)}), Starts{});
  EXPECT_EQ(pendingPeriods({.earliestEventMs = 0, .asOfMs = earliestSensibleMs + 1'000'000, .stepIntervalSec = 1000}).size(), 1u)
      << "a clock that was never set begins no period";
}

struct Scene {
  Scene() {
    backend.answer = [this](const test::ScriptedBackend::Call& call, const std::stop_token&) {
      const auto& prompt = call.messages.at(0).content;
      const bool isDigest = prompt.find("Candidate facts") == std::string::npos;
      return isDigest ? onDigest(prompt) : onRegeneration(prompt);
    };
    onDigest = [](const std::string& prompt) {
      const bool quiet = prompt.find("(quiet period, nothing logged)") != std::string::npos;
      return ChatResponse{
          .text = quiet
                      ? R"({"summary":"quiet","facts":[],"lessons":[]})"
                      : R"({"summary":"busy","facts":[{"text":"fact","provenance":"asserted","source_lines":[1]}],"lessons":["lesson"]})"};
    };
    onRegeneration = [](const std::string&) {
      return ChatResponse{
          .text = R"({"threads":[{"name":"t","status":"active","notes":""}],"keep_fact_indices":[0,999],"lessons":["lesson"]})"};
    };
    for (const auto period : {0, 2}) say(period, "words");
  }
  void say(int period, const std::string& text) {
    events.push_back(
        {.tsMs = firstMs + period * stepMs + 1, .type = "app_chat_message", .detail = JSONObject{{"role", "user"}, {"text", text}}});
  }
  Pass pass() {
    return {.events = events,
            .dataRoot = folder.path(),
            .asOfMs = nowMs,
            .checkpoint = [this] { return checkpoint ? checkpoint() : std::nullopt; },
            .shouldYield = [this] { return yields; },
            .nowMs = [this] { return nowMs += 10; }};
  }
  Work work() {
    Work made;
    made.backend = &backend;
    made.calendar = Calendar::utc();
    made.log = [this](const std::string& line) { log.push_back(line); };
    return made;
  }
  PassOutcome run() { return runPass(pass(), work()); }
  std::vector<PeriodDigest> digests() const { return MemoryStore::readAllDigests(folder.path()); }
  bool logged(const std::string& part) const {
    return std::any_of(log.begin(), log.end(), [&](const std::string& line) { return line.find(part) != std::string::npos; });
  }

  test::TemporaryFolder folder;
  test::ScriptedBackend backend;
  std::function<ChatResponse(const std::string&)> onDigest, onRegeneration;
  std::function<std::optional<PassStop>()> checkpoint;
  bool yields = false;
  std::vector<EventLogEvent> events;
  std::int64_t nowMs = firstMs + 3 * stepMs + 60'000;
  std::vector<std::string> log;
};

TEST(ConsolidationPass, digestsWhatIsDueAndRegenerates) {
  Scene scene;
  const auto outcome = scene.run();
  ASSERT_TRUE(std::holds_alternative<PassResult::Regenerated>(outcome));
  const auto& memory = std::get<PassResult::Regenerated>(outcome).memory;
  EXPECT_EQ(memory.threads.size(), 1u);
  EXPECT_EQ(memory.facts, (std::vector<MemoryFact>{{"fact", MemoryFactProvenance::asserted, {firstMs + 1, firstMs + 2 * stepMs + 1}}}));
  EXPECT_EQ(memory.digestCount, 3);
  EXPECT_EQ(MemoryStore::readStanding(scene.folder.path()), memory);
  ASSERT_EQ(scene.digests().size(), 3u) << "the quiet period too";
  EXPECT_EQ(scene.digests()[1].summary, "quiet");
  EXPECT_EQ(scene.backend.calls().size(), 4u);
  EXPECT_EQ(scene.backend.calls()[0].options.turn, ChatTurn::background);
  for (const auto* line : {"0 digest(s) on disk, 3 period(s) pending", "period 1 of 3 (", " left", "  facts: 1, lessons: 1",
                           "regenerating standing memory from 3 digest(s)", "standing memory: 1 thread(s), 1 fact(s), 1 lesson(s)"})
    EXPECT_TRUE(scene.logged(line)) << line;
  EXPECT_TRUE(std::holds_alternative<PassResult::Unchanged>(scene.run()));
  EXPECT_EQ(scene.backend.calls().size(), 4u) << "nothing is digested twice";
}

TEST(ConsolidationPass, unusableRepliesAreSalvagedAndSaid) {
  Scene scene;
  scene.onDigest = [&](const std::string&) { return ChatResponse{.text = R"({"summary":"x"})", .truncated = true, .servedBy = "ollama"}; };
  scene.events.pop_back();
  scene.nowMs = firstMs + stepMs + 5;
  scene.onRegeneration = [](const std::string&) { return ChatResponse{.text = "I can't."}; };
  const auto outcome = scene.run();
  ASSERT_EQ(scene.digests().size(), 1u);
  EXPECT_TRUE(scene.digests()[0].salvaged);
  EXPECT_EQ(scene.digests()[0].summary, "(digest failed: model response was truncated or unparseable)");
  const auto& done = std::get<PassResult::Regenerated>(outcome);
  EXPECT_TRUE(done.memory.salvaged);
  EXPECT_EQ(done.memory.salvageDetail, "the reply was complete (8 chars) but was not the JSON asked for");
  EXPECT_EQ(done.degenerate,
            "the model's reply could not be used, so standing memory was left unorganized -- 0 fact(s) and 0 lesson(s) kept unpruned, no "
            "threads");
  for (const auto* line :
       {"digest FAILED for 2025-11-24T18:00:00Z -- truncated=true, parseFailed=false, servedBy=ollama, maxTokens=4096, renderedChars=27, "
        "responseChars=15. This period is now permanently empty in memory; digests are never retried.",
        "  response head: {\"summary\":\"x\"}", "  response tail: {\"summary\":\"x\"}",
        "period 1 of 1 (2025-11-24T18:00:00Z) [DEGRADED -- period lost, never retried]",
        "regeneration JSON did not parse -- truncated=false, servedBy=unknown, maxTokens=4096, responseChars=8, candidates=0 fact(s)/0 "
        "lesson(s)",
        "WARNING: regeneration response did not parse -- SALVAGED every candidate unorganized."})
    EXPECT_TRUE(scene.logged(line)) << line << "\n" << scene.log[1];
  // A salvaged memory is made anew without news.
  scene.onRegeneration = [](const std::string&) { return ChatResponse{.text = R"({"threads":[],"keep_fact_indices":[],"lessons":[]})"}; };
  EXPECT_FALSE(std::get<PassResult::Regenerated>(scene.run()).memory.salvaged);
  EXPECT_TRUE(scene.logged(" -- standing memory is SALVAGED, regenerating to repair it"));
  EXPECT_TRUE(std::holds_alternative<PassResult::Unchanged>(scene.run()));
}

TEST(ConsolidationPass, noThreadsOutOfRealContentIsDegenerate) {
  Scene scene;
  scene.onRegeneration = [](const std::string&) { return ChatResponse{.text = R"({"threads":[],"keep_fact_indices":[0],"lessons":[]})"}; };
  EXPECT_EQ(std::get<PassResult::Regenerated>(scene.run()).degenerate,
            "0 threads, 1 fact(s)/0 lesson(s) kept out of 2 candidates -- nothing was pruned or organized despite real digest content");
}

TEST(ConsolidationPass, aModelErrorKeepsThePeriodPending) {
  Scene scene;
  const auto usual = scene.onDigest;
  scene.onDigest = [&](const std::string& prompt) {
    if (scene.digests().size() == 1) throw ModelBackendError::transportError("refused");
    return usual(prompt);
  };
  const auto failed = std::get<PassResult::Failed>(scene.run());
  EXPECT_EQ(failed.reason, "transport: refused");
  EXPECT_EQ(failed.periodsPending, 2);
  EXPECT_EQ(scene.digests().size(), 1u);
  EXPECT_EQ(MemoryStore::readStanding(scene.folder.path()), std::nullopt);
  scene.onDigest = usual;
  EXPECT_EQ(std::get<PassResult::Regenerated>(scene.run()).memory.digestCount, 3);
  // The same at the last step: the digests stand, and the next pass takes them up.
  scene.say(3, "more");
  scene.nowMs += stepMs;
  const auto answer = scene.onRegeneration;
  scene.onRegeneration = [](const std::string&) -> ChatResponse { throw ModelBackendError::httpError(500, "x"); };
  EXPECT_EQ(std::get<PassResult::Failed>(scene.run()).periodsPending, 0);
  scene.onRegeneration = answer;
  EXPECT_EQ(std::get<PassResult::Regenerated>(scene.run()).memory.digestCount, 4);
  EXPECT_TRUE(scene.logged("1 digest(s) on disk not yet in standing memory, regenerating "));
}

TEST(ConsolidationPass, stopsBetweenCallsWhenToldTo) {
  for (const bool power : {true, false}) {
    for (const std::size_t callsBefore : {0, 2, 3}) {
      SCOPED_TRACE(callsBefore);
      Scene scene;
      scene.checkpoint = [&]() -> std::optional<PassStop> {
        if (scene.backend.calls().size() < callsBefore) return std::nullopt;
        scene.yields = !power;
        return power ? std::optional(PassStop{PassStop::Kind::paused, "20%"}) : std::nullopt;
      };
      const auto stop = std::get<PassResult::Stopped>(scene.run()).stop;
      EXPECT_EQ(stop.kind, power ? PassStop::Kind::paused : PassStop::Kind::yielded);
      EXPECT_EQ(scene.digests().size(), callsBefore);
      EXPECT_EQ(scene.backend.calls().size(), callsBefore);
      scene.checkpoint = nullptr;
      scene.yields = false;
      EXPECT_EQ(std::get<PassResult::Regenerated>(scene.run()).memory.digestCount, 3);
      EXPECT_EQ(scene.backend.calls().size(), 4u);
    }
  }
  Scene scene;
  std::stop_source stop;
  stop.request_stop();
  auto work = scene.work();
  work.stop = stop.get_token();
  EXPECT_THROW(runPass(scene.pass(), work), Cancelled);
}

TEST(ConsolidationPass, aWipeIsHonoured) {
  Scene scene;
  scene.run();
  // Asked for while the model is at work on a memory of before: that memory counts as older.
  scene.say(3, "more");
  scene.nowMs += stepMs;
  const auto answer = scene.onRegeneration;
  scene.onRegeneration = [&](const std::string& prompt) {
    MemoryWipeLog::request(scene.nowMs += 10, MemoryWipeLog::defaultURL(scene.folder.path()));
    return answer(prompt);
  };
  const auto memory = std::get<PassResult::Regenerated>(scene.run()).memory;
  EXPECT_LT(memory.regeneratedAtTsMs, *MemoryWipeLog::latestAtMs(MemoryWipeLog::defaultURL(scene.folder.path())));
  EXPECT_TRUE(std::holds_alternative<PassResult::Unchanged>(scene.run())) << "nothing is left to remember";
  scene.onRegeneration = answer;
  scene.say(5, "after");
  scene.events.push_back(
      {.tsMs = scene.nowMs - 100'000, .type = "coach_correction_recorded", .detail = JSONObject{{"text", "wiped words"}}});
  scene.events.push_back({.tsMs = scene.nowMs + 100, .type = "coach_correction_recorded", .detail = JSONObject{{"text", "kept words"}}});
  scene.nowMs += 2 * stepMs;
  std::ranges::stable_sort(scene.events, {}, &EventLogEvent::tsMs);
  EXPECT_EQ(std::get<PassResult::Regenerated>(scene.run()).memory.digestCount, 1);
  EXPECT_EQ(scene.digests().size(), 6u) << "no file went";
  const auto prompt = scene.backend.calls().back().messages[0].content;
  EXPECT_EQ(prompt.find("wiped words"), std::string::npos);
  EXPECT_NE(prompt.find("- kept words"), std::string::npos);
  EXPECT_TRUE(scene.logged("honouring memory wipe requested at 2025-11-25T"));
}

TEST(ConsolidationPass, theLockAndTheDisk) {
  Scene scene;
  {
    const auto held = DreamLock::acquire(scene.folder.path());
    EXPECT_TRUE(std::holds_alternative<PassResult::LockHeld>(scene.run()));
    EXPECT_TRUE(std::holds_alternative<PassResult::LockHeld>(runSequentialPass(scene.pass(), scene.work())));
    EXPECT_TRUE(scene.logged("another process already holds the dream lock -- skipping this pass"));
    EXPECT_TRUE(scene.logged("another process already holds the dream lock -- skipping this sequential pass"));
  }
  EXPECT_TRUE(scene.backend.calls().empty());
  scene.folder.write("memory/standing-memory.json", "{ half");
  EXPECT_EQ(std::get<PassResult::Regenerated>(scene.run()).memory.digestCount, 3) << "a damaged memory is made anew";
  scene.folder.write("memory/period-digests/7.json", "{ half");
  EXPECT_NE(std::get<PassResult::Failed>(scene.run()).reason.find("7.json is damaged"), std::string::npos);
  Scene blocked;
  blocked.folder.write("memory", "a file in the way");
  EXPECT_TRUE(std::holds_alternative<PassResult::Failed>(blocked.run()));
  EXPECT_TRUE(
      blocked.logged("dream lock unavailable (could not open lock file (errno 20)) -- proceeding without cross-process protection"));
  Scene unwritable;
  std::filesystem::create_directory(unwritable.folder.path() / "memory");
  std::filesystem::create_directory_symlink("/nowhere/at-all", MemoryStore::digestsFolder(unwritable.folder.path()));
  EXPECT_EQ(std::get<PassResult::Failed>(unwritable.run()).periodsPending, 3);
  EXPECT_EQ(unwritable.backend.calls().size(), 1u) << "no call after one whose result can't be kept";
}

TEST(ConsolidationPass, sequentialFoldsOnlyWhatIsNew) {
  Scene scene;
  const auto first = std::get<PassResult::Folded>(runSequentialPass(scene.pass(), scene.work()));
  EXPECT_EQ(first.state.foldedPeriodStartsTsMs.size(), 3u);
  EXPECT_EQ(MemoryStore::readSequentialState(scene.folder.path()), first.state);
  EXPECT_TRUE(std::holds_alternative<PassResult::Unchanged>(runSequentialPass(scene.pass(), scene.work())));
  scene.say(3, "more");
  scene.nowMs += stepMs;
  const auto second = std::get<PassResult::Folded>(runSequentialPass(scene.pass(), scene.work()));
  EXPECT_EQ(second.state.foldedPeriodStartsTsMs.size(), 4u);
  EXPECT_EQ(second.state.standingMemory.digestCount, 4);
  const auto prompt = scene.backend.calls().back().messages[0].content;
  EXPECT_NE(prompt.find("- t [active]: \n\nNew period summaries since the last fold, oldest first:\n- busy\n\n"), std::string::npos);
  for (const auto* line : {"dream-pass-sequential: 1 period(s) pending, 0 already-digested period(s) not yet folded",
                           "folding 1 not-yet-folded digest(s) into sequential standing memory...", "4 period(s) folded total"})
    EXPECT_TRUE(scene.logged(line)) << line;
  MemoryWipeLog::request(scene.nowMs, MemoryWipeLog::defaultURL(scene.folder.path()));
  EXPECT_TRUE(std::holds_alternative<PassResult::Unchanged>(runSequentialPass(scene.pass(), scene.work())));
}

TEST(ConsolidationPass, backfillFoldsOneByOne) {
  Scene scene;
  scene.run();
  const auto backfill = [&](std::size_t limit) { return backfillSequential(scene.pass(), limit, scene.work()); };
  EXPECT_TRUE(std::holds_alternative<PassResult::Unchanged>(backfill(0)));
  EXPECT_TRUE(scene.logged(" leaves nothing to backfill this call"));
  const auto calls = scene.backend.calls().size();
  EXPECT_EQ(std::get<PassResult::Folded>(backfill(2)).state.foldedPeriodStartsTsMs, (std::vector{firstMs, firstMs + stepMs}));
  EXPECT_EQ(scene.backend.calls().size(), calls + 2);
  EXPECT_TRUE(scene.logged("backfilling 2 of 3 unfolded digest(s) (one fold call each)..."));
  EXPECT_TRUE(scene.logged("folding digest 2 (dated 2025-11-25T00:00:00Z)"));
  EXPECT_EQ(std::get<PassResult::Folded>(backfill(9)).state.standingMemory.digestCount, 3);
  EXPECT_TRUE(std::holds_alternative<PassResult::Unchanged>(backfill(9)));
  EXPECT_TRUE(scene.logged("nothing to backfill -- every digest on disk is already folded"));
}

TEST(StandingComparison, byExactText) {
  const StandingMemory a{.threads = {{.name = "x"}}, .lessons = {"l", "m"}, .facts = {{.text = "f"}, {.text = "made up"}}};
  const StandingMemory b{.threads = {{.name = "y"}}, .lessons = {"m"}};
  const auto diff = diffStanding({"whole", &a, 3}, {"folded", &b, 2});
  EXPECT_EQ(diff.lessonsOnlyInA, std::vector<std::string>{"l"});
  EXPECT_TRUE(diff.lessonsOnlyInB.empty());
  EXPECT_EQ(diff.threadNamesOnlyInB, std::vector<std::string>{"y"});
  EXPECT_EQ(diff.coverageA, 3);
  const std::vector<PeriodDigest> digests{{.facts = {{.text = "f"}}}};
  EXPECT_EQ(factsUnsupportedByDigests(a, digests), (std::vector<MemoryFact>{{.text = "made up"}}));
}

}  // namespace
}  // namespace halvo
