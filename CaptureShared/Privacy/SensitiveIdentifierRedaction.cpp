#include "CaptureShared/Privacy/SensitiveIdentifierRedaction.h"

#include <unicode/uchar.h>

#include <algorithm>
#include <optional>

#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Privacy/NormalizedIdentifierText.h"
#include "CaptureShared/Privacy/SecretRedaction.h"

namespace halvo::SensitiveIdentifierRedaction {
namespace {

/// A replacement can bring two neighbours together that make a new match; after so many rounds a text is hostile.
constexpr int mostRounds = 8;

/// Decimal digits, and the other characters that stand for numbers.
bool hasNumericCharacter(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    const auto byte = static_cast<unsigned char>(text[at]);
    if (byte < 0x80) {
      if (byte >= '0' && byte <= '9') return true;
      ++at;
      continue;
    }
    const auto mask = U_GET_GC_MASK(static_cast<UChar32>(Text::nextCodePoint(text, at)));
    if (mask & (U_GC_ND_MASK | U_GC_NL_MASK | U_GC_NO_MASK)) return true;
  }
  return false;
}

std::size_t nextCharacter(std::string_view text, std::size_t at) {
  Text::nextCodePoint(text, at);
  return at;
}

/// The next value at or behind `from` that passes the detector's check; `from` moves behind it.
std::optional<Regex::Span> nextValue(const Detector& detector, std::string_view text, std::size_t& from) {
  while (from < text.size()) {
    std::optional<Regex::Match> found;
    if (detector.nextCandidate) {
      from = detector.nextCandidate(text, from);
      if (from == std::string_view::npos) return std::nullopt;
      found = detector.anchored->find(text, from);
      if (!found) {
        from = nextCharacter(text, from);
        continue;
      }
    } else {
      found = detector.regex.find(text, from);
      if (!found) return std::nullopt;
    }
    if (const auto& group = found->groups[detector.group]) {
      if (const auto length = detector.validate(text.substr(group->begin, group->size()))) {
        const Regex::Span value{group->begin, group->begin + length};
        from = value.end;
        return value;
      }
    }
    // What failed may hide its neighbour: "routing 000000000 4111..." looks again one character on, not behind the whole match.
    from = nextCharacter(text, found->whole().begin);
  }
  return std::nullopt;
}

/// Replaces in `text`; answers how many values there were.
int apply(const Detector& detector, std::string& text, NormalizedIdentifierText& normalized) {
  std::string out;
  std::size_t copied = 0, from = 0;
  int hits = 0;
  while (const auto value = nextValue(detector, normalized.text(), from)) {
    const auto [begin, end] = normalized.originalRange(value->begin, value->end);
    out.append(text, copied, begin - copied).append(token(detector.kind));
    copied = end;
    ++hits;
  }
  if (hits == 0) return 0;
  out.append(text, copied, std::string::npos);
  text = std::move(out);
  normalized = NormalizedIdentifierText(text);
  return hits;
}

int applyTable(const std::vector<Detector>& table, std::string& text, RedactionReport& report) {
  NormalizedIdentifierText normalized(text);
  int all = 0;
  for (const auto& detector : table) {
    const int hits = apply(detector, text, normalized);
    if (hits) report.count(detector.kind, hits);
    all += hits;
  }
  return all;
}

int applyScope(Scope scope, std::string& text, RedactionReport& report) {
  const int credentials = scope == Scope::outbound ? applyTable(credentialDetectors(), text, report) : 0;
  if (!hasNumericCharacter(text)) return credentials;
  return credentials + applyTable(lifeLevelDetectors(), text, report);
}

}  // namespace

std::string redact(std::string_view text, Scope scope, RedactionReport& report) {
  try {
    std::string redacted = Text::scrubbed(text);
    RedactionReport found;
    for (int round = 0; applyScope(scope, redacted, found) != 0; ++round)
      if (round == mostRounds) throw RegexLimitExceeded();
    report.merge(found);
    return redacted;
  } catch (const RegexLimitExceeded&) {
    report.count(SensitiveIdentifierKind::credential);
    return std::string(SecretRedaction::uncheckedText);
  }
}

std::pair<std::string, RedactionReport> redact(std::string_view text, Scope scope) {
  RedactionReport report;
  auto redacted = redact(text, scope, report);
  return {std::move(redacted), std::move(report)};
}

bool findsAnything(std::string_view text, Scope scope) { return !redact(text, scope).second.isEmpty(); }

}  // namespace halvo::SensitiveIdentifierRedaction
