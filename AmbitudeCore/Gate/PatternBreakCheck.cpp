#include "AmbitudeCore/Gate/PatternBreakCheck.h"

#include <cctype>
#include <vector>

#include "AmbitudeCore/Folds/TimedTicks.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Privacy/ScreenText.h"

namespace halvo::PatternBreakCheck {

namespace {

constexpr const char* systemPrompt =
    R"lark(You compare a timeline of what someone has been doing against a prediction, and answer one question: has the pattern changed?

Answer with exactly one word on the first line — CHANGED or SAME — and then, only if CHANGED, one short sentence naming what is different. Nothing else.

SAME means the timeline still matches the prediction, even loosely. Minor variation within the same activity is SAME: a different video on the same site, another file in the same app, scrolling a different page of the same feed. Say CHANGED only when the activity itself is genuinely different from what was predicted — a different kind of thing, not a different instance of the same thing.

When in doubt, answer SAME. A wrong SAME costs a few more quiet minutes. A wrong CHANGED interrupts someone who was left alone on purpose.)lark";

constexpr int maxTokens = 256;

/// "15:04 NOT_ALIGNED, firefox frontmost, saying: "..."".
std::string line(const TimedTick& tick, const Calendar& calendar) {
  auto text = calendar.hourMinute(tick.tsMs) + " " + tick.tick->state.value_or("-");
  if (tick.tick->frontmostApp) text += ", " + ScreenText::sanitize(*tick.tick->frontmostApp, ScreenText::titleCap) + " frontmost";
  if (tick.tick->reason) text += ", saying: " + ScreenText::quoted(*tick.tick->reason, ScreenText::reasonCap);
  return text;
}

std::vector<TimedTick> newest(std::vector<TimedTick> ticks, std::size_t cap) {
  if (ticks.size() > cap) ticks.erase(ticks.begin(), ticks.end() - static_cast<std::ptrdiff_t>(cap));
  return ticks;
}

}  // namespace

std::optional<Verdict> evaluate(const Question& question, ModelBackend& backend, const std::stop_token& stop) {
  const auto& window = question.window;
  if (window.isBlind()) return std::nullopt;
  const auto lookbackMs = static_cast<std::int64_t>(baselineLookback * 1000);
  const auto before =
      newest(TimedTicks::within(question.ticks, window.startMs - lookbackMs, window.startMs - 1), baselineTickCap);
  const auto inside = newest(TimedTicks::within(question.ticks, window.startMs, question.asOfMs), windowTickCap);
  if (before.size() + inside.size() < question.minimumTimelineTicks) return std::nullopt;
  std::vector<std::string> timeline;
  for (const auto& tick : before) timeline.push_back(line(tick, question.calendar));
  timeline.emplace_back("--- asked to be left alone here ---");
  for (const auto& tick : inside) timeline.push_back(line(tick, question.calendar));
  const auto asked = "Prediction: " + ScreenText::sanitize(*window.expectation, ScreenText::reasonCap) + "\n\nTimeline:\n" +
                     Text::join(timeline, "\n") + "\n\nHas the pattern changed?";
  const auto reply = backend.chat({ChatMessage::system(systemPrompt), ChatMessage::user(asked)}, {},
                                  {.maxTokens = maxTokens, .think = false, .turn = ChatTurn::background}, stop);
  return verdictOf(reply.text);
}

Verdict verdictOf(std::string_view reply) {
  constexpr std::string_view changed = "CHANGED";
  const auto text = Text::trim(reply);
  const bool isWord = text.size() == changed.size() || (text.size() > changed.size() && !std::isalnum(static_cast<unsigned char>(text[changed.size()])));
  if (!text.starts_with(changed) || !isWord) return {};
  auto reason = text.substr(changed.size());
  while (!reason.empty() && std::string_view(" \t\r\n.:,-").find(reason.front()) != std::string_view::npos) reason.remove_prefix(1);
  return {.broken = true, .reason = std::string(Text::trim(reason))};
}

}  // namespace halvo::PatternBreakCheck
