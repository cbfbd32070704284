// Redaction of a screen's text: all tables with their checks, beside the bare patterns alone.

#include <benchmark/benchmark.h>

#include <string>

#include "CaptureShared/Privacy/SensitiveIdentifierRedaction.h"

namespace {

using namespace halvo;

/// About 8 KB as text recognition gives it: prose, times, prices, code; `identifiers` says whether one of each kind stands in it too.
std::string screenText(bool identifiers) {
  const std::string prose =
      "Inbox (24) Compose  Re: draft of chapter 3 - 10:42 AM\nI moved the meeting to 14:30 on 2024-01-15; the room is B-204. Total "
      "1,284.50 EUR, "
      "order placed.\nstatic int parse(const std::string& text) { return std::stoi(text) + 42; } // see note 1178\n"
      "The account of the journey is told in three parts, and the card on page 12 shows the route taken in 1998.\n";
  const std::string private_ =
      "SSN: 536-90-4399 card 4111 1111 1111 1111 IBAN DE89 3704 0044 0532 0130 00 routing number 011000015\npassword=hunter2hunter2\n";
  std::string text;
  while (text.size() < 8 * 1024) text += prose + (identifiers && text.size() / 2048 != (text.size() + prose.size()) / 2048 ? private_ : "");
  text.resize(8 * 1024);
  return text;
}

void barePatterns(benchmark::State& state, bool identifiers) {
  const auto text = screenText(identifiers);
  for (auto _ : state) {
    std::size_t found = 0;
    for (const auto* table : {&SensitiveIdentifierRedaction::credentialDetectors(), &SensitiveIdentifierRedaction::lifeLevelDetectors()})
      for (const auto& detector : *table)
        for (auto match = detector.regex.find(text); match; match = detector.regex.find(text, match->whole().end)) ++found;
    benchmark::DoNotOptimize(found);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(text.size()));
}

void redaction(benchmark::State& state, bool identifiers) {
  const auto text = screenText(identifiers);
  for (auto _ : state) benchmark::DoNotOptimize(SensitiveIdentifierRedaction::redact(text, SensitiveIdentifierRedaction::Scope::outbound));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(text.size()));
}

}  // namespace

BENCHMARK_CAPTURE(barePatterns, plain, false);
BENCHMARK_CAPTURE(redaction, plain, false);
BENCHMARK_CAPTURE(barePatterns, identifiers, true);
BENCHMARK_CAPTURE(redaction, identifiers, true);

BENCHMARK_MAIN();
