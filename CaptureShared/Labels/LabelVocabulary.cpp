#include "CaptureShared/Labels/LabelVocabulary.h"

#include <algorithm>
#include <array>

#include "CaptureShared/Foundation/Translation.h"

namespace halvo::LabelVocabulary {

namespace {

struct Entry {
  std::string_view stored;
  Tone tone;
  std::string_view name;
};
constexpr std::array entries{Entry{"on_task", Tone::aligned, trMark("on task")},
                             Entry{"on_task_overtime", Tone::caveat, trMark("on task, over time")},
                             Entry{"switching_tasks", Tone::caveat, trMark("between tasks")},
                             Entry{"rabbit_hole", Tone::diverged, trMark("down a rabbit hole")},
                             Entry{"off_task", Tone::diverged, trMark("off task")},
                             Entry{"not_aligned", Tone::diverged, trMark("not aligned")},
                             Entry{"break", Tone::away, trMark("on a break")},
                             Entry{"not_using_computer", Tone::away, trMark("not at the computer")},
                             Entry{"ambiguous", Tone::unknown, trMark("can't say")},
                             Entry{"no_task", Tone::unknown, trMark("no task declared")}};

struct State {
  std::string_view state, name;
};
constexpr std::array states{State{"ON_TASK", trMark("on task")},
                            State{"NOT_ALIGNED", trMark("not aligned")},
                            State{"OFF_TASK", trMark("off task")},
                            State{"IDLE", trMark("not at the computer")},
                            State{"BREAK", trMark("on a break")},
                            State{"NO_TASK", trMark("no task declared")},
                            State{"ABSTAINED", trMark("no verdict")}};

}  // namespace

Tone tone(std::string_view forStored) {
  const auto found = std::ranges::find(entries, forStored, &Entry::stored);
  return found == entries.end() ? Tone::unknown : found->tone;
}

std::string displayName(std::string_view forStored) {
  const auto found = std::ranges::find(entries, forStored, &Entry::stored);
  return found == entries.end() ? std::string(forStored) : tr(found->name);
}

std::string displayNameForState(std::string_view forClassifierState) {
  const auto found = std::ranges::find(states, forClassifierState, &State::state);
  return found == states.end() ? std::string(forClassifierState) : tr(found->name);
}

}  // namespace halvo::LabelVocabulary
