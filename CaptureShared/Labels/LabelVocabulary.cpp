#include "CaptureShared/Labels/LabelVocabulary.h"

#include <algorithm>
#include <array>

namespace halvo::LabelVocabulary {

namespace {

struct Entry {
  std::string_view stored;
  Tone tone;
  std::string_view name;
};
constexpr std::array entries{Entry{"on_task", Tone::aligned, "on task"},
                             Entry{"on_task_overtime", Tone::caveat, "on task, over time"},
                             Entry{"switching_tasks", Tone::caveat, "between tasks"},
                             Entry{"rabbit_hole", Tone::diverged, "down a rabbit hole"},
                             Entry{"off_task", Tone::diverged, "off task"},
                             Entry{"not_aligned", Tone::diverged, "not aligned"},
                             Entry{"break", Tone::away, "on a break"},
                             Entry{"not_using_computer", Tone::away, "not at the computer"},
                             Entry{"ambiguous", Tone::unknown, "can't say"},
                             Entry{"no_task", Tone::unknown, "no task declared"}};

struct State {
  std::string_view state, name;
};
constexpr std::array states{State{"ON_TASK", "on task"},       State{"NOT_ALIGNED", "not aligned"},       State{"OFF_TASK", "off task"},
                            State{"IDLE", "not at the computer"}, State{"BREAK", "on a break"}, State{"NO_TASK", "no task declared"},
                            State{"ABSTAINED", "no verdict"}};

}  // namespace

Tone tone(std::string_view forStored) {
  const auto found = std::ranges::find(entries, forStored, &Entry::stored);
  return found == entries.end() ? Tone::unknown : found->tone;
}

std::string displayName(std::string_view forStored) {
  const auto found = std::ranges::find(entries, forStored, &Entry::stored);
  return std::string(found == entries.end() ? forStored : found->name);
}

std::string displayNameForState(std::string_view forClassifierState) {
  const auto found = std::ranges::find(states, forClassifierState, &State::state);
  return std::string(found == states.end() ? forClassifierState : found->name);
}

}  // namespace halvo::LabelVocabulary
