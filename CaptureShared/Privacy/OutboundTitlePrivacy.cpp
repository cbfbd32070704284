#include "CaptureShared/Privacy/OutboundTitlePrivacy.h"

#include <unicode/uchar.h>

#include <fmt/format.h>

#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Privacy/NormalizedIdentifierText.h"
#include "CaptureShared/Privacy/SensitiveIdentifierRedaction.h"

namespace halvo::OutboundTitlePrivacy {
namespace {

/// A title with a longer word than this is not one that a person reads. Left to the patterns, "case-case-case-..." would be run through
/// once from each "case".
constexpr std::size_t longestWord = 4096;

bool always(std::string_view) { return true; }

/// "Order status" and "Policy 2024-25" name no one's order or policy.
bool isIdentifierValue(std::string_view value) {
  static const Regex yearSpan(R"re(^(?:19|20)\d{2}-(?:(?:19|20)?\d{2}|\d{2}-\d{2})$)re");
  bool hasDigit = false;
  for (std::size_t at = 0; at < value.size() && !hasDigit;)
    hasDigit = u_isdigit(static_cast<UChar32>(Text::nextCodePoint(value, at)));
  return hasDigit && !yearSpan.matches(value);
}

std::vector<Pattern> makePatterns() {
  std::vector<Pattern> table;
  const auto add = [&](std::size_t group, bool (*validate)(std::string_view), std::string_view pattern) {
    table.push_back({.regex = Regex(pattern), .group = group, .validate = validate});
  };
  add(1, isIdentifierValue,
      R"re((?i)(?<![A-Za-z0-9])(?:account|acct|member|patient|mrn|medical\s+record|claim|policy|subscriber)re"
      R"re(|customer|case|confirmation|reference|ref|order|invoice|tracking|npi|passport|licen[cs]e)(?:\s+)re"
      R"re((?:number|no\.?|num|id))?(?:\s*(?:#|№)?\s*[:=\-]\s*|\s*[#№]\s*|\s+))re"
      R"re(([A-Za-z0-9][A-Za-z0-9-]*[A-Za-z0-9])(?![A-Za-z0-9]))re");
  add(1, isIdentifierValue,
      R"re((?<![A-Za-z0-9])(?:ID|Id)(?:\s*(?:#|№)?\s*[:=\-]\s*|\s*[#№]\s*|\s+))re"
      R"re(([A-Za-z0-9][A-Za-z0-9-]*[A-Za-z0-9])(?![A-Za-z0-9]))re");
  add(0, always,
      R"re((?:[*•●]{3,}\s?\d{4}|(?<![A-Za-z])[xX]{3,}\d{4}|\(\s?(?:\.{3}|…)\s?\d{4}\s?\)|(?i:ending\s+in)re"
      R"re(|ends\s+in)\s+(?!(?:19|20)\d{2}(?!\d))\d{4})(?!\d))re");
  add(1, always,
      R"re((?<![\w\-./])(\d{10,})(?![\w\-]|[.,]\d))re");
  return table;
}

/// Titles as the patterns see them. Throws `RegexLimitExceeded` for one that they can't check in reasonable time.
NormalizedIdentifierText checkable(std::string_view title) {
  std::size_t word = 0;
  for (const char c : title) {
    const bool inWord = c == '-' || (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    word = inWord ? word + 1 : 0;
    if (word > longestWord) throw RegexLimitExceeded();
  }
  return NormalizedIdentifierText(title);
}

/// The next value at or behind `from` that counts; `from` moves behind it.
std::optional<Regex::Span> nextValue(const Pattern& pattern, std::string_view text, std::size_t& from) {
  while (from < text.size()) {
    const auto found = pattern.regex.find(text, from);
    if (!found) return std::nullopt;
    const auto& group = found->groups[pattern.group];
    if (group && pattern.validate(text.substr(group->begin, group->size()))) {
      from = group->end;
      return group;
    }
    // "customer account 12345": the first label takes "account" for its value, and the number belongs to the second.
    from = found->whole().begin;
    Text::nextCodePoint(text, from);
  }
  return std::nullopt;
}

bool holdsIdentifier(std::string_view title) {
  const auto normalized = checkable(title);
  for (const auto& pattern : patterns()) {
    std::size_t from = 0;
    if (nextValue(pattern, normalized.text(), from)) return true;
  }
  return SensitiveIdentifierRedaction::findsAnything(title, SensitiveIdentifierRedaction::Scope::outbound);
}

Outcome generic(SensitiveSites::Category category) {
  switch (category) {
    case SensitiveSites::Category::financial: return Outcome::genericizedFinancial;
    case SensitiveSites::Category::medical: return Outcome::genericizedMedical;
  }
  return Outcome::withheldIdentifier;
}

}  // namespace

const std::vector<Pattern>& patterns() {
  static const auto table = makePatterns();
  return table;
}

std::string_view genericToken(SensitiveSites::Category category) {
  switch (category) {
    case SensitiveSites::Category::financial: return "[banking or other financial site]";
    case SensitiveSites::Category::medical: return "[medical or health site]";
  }
  return withheldToken;
}

Outcome outcome(std::string_view given) {
  try {
    const auto title = Text::scrubbed(given);
    if (holdsIdentifier(title)) return Outcome::withheldIdentifier;
    const auto normalized = checkable(title);
    if (const auto category = SensitiveSites::categoryInTitle(normalized.text())) return generic(*category);
    if (const auto category = SensitiveSites::categoryOfDomainInTitle(normalized.text())) return generic(*category);
    return Outcome::unchanged;
  } catch (const RegexLimitExceeded&) {
    return Outcome::withheldIdentifier;
  }
}

std::string sanitize(std::string_view title) {
  switch (outcome(title)) {
    case Outcome::unchanged: return Text::scrubbed(title);
    case Outcome::withheldIdentifier: return std::string(withheldToken);
    case Outcome::genericizedFinancial: return std::string(genericToken(SensitiveSites::Category::financial));
    case Outcome::genericizedMedical: return std::string(genericToken(SensitiveSites::Category::medical));
  }
  return std::string(withheldToken);
}

std::optional<std::string> sanitize(const std::optional<std::string>& title) {
  if (!title) return std::nullopt;
  return sanitize(std::string_view(*title));
}

std::string redactIdentifierValues(std::string_view given) {
  try {
    auto title = Text::scrubbed(given);
    for (const auto& pattern : patterns()) {
      const auto normalized = checkable(title);
      std::string out;
      std::size_t copied = 0, from = 0;
      while (const auto value = nextValue(pattern, normalized.text(), from)) {
        const auto [begin, end] = normalized.originalRange(value->begin, value->end);
        out.append(title, copied, begin - copied).append(redactedValueToken);
        copied = end;
      }
      out.append(title, copied, std::string::npos);
      title = std::move(out);
    }
    return title;
  } catch (const RegexLimitExceeded&) {
    return std::string(withheldToken);
  }
}

std::map<std::string, int> placeholderCounts(std::string_view text) {
  std::map<std::string, int> counts;
  for (const auto token : {withheldToken, redactedValueToken, genericToken(SensitiveSites::Category::financial),
                           genericToken(SensitiveSites::Category::medical)})
    for (auto at = text.find(token); at != std::string_view::npos; at = text.find(token, at + token.size()))
      ++counts[std::string(token)];
  return counts;
}

std::string summary(const std::vector<Outcome>& outcomes) {
  std::string line;
  for (const auto& [kind, text] : RawValues<Outcome>::table) {
    int times = 0;
    for (const auto seen : outcomes) times += seen == kind;
    if (times == 0 || kind == Outcome::unchanged) continue;
    if (!line.empty()) line += ", ";
    line += fmt::format("{} {}", text, times);
  }
  return line;
}

}  // namespace halvo::OutboundTitlePrivacy
