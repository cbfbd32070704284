#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "CaptureShared/Foundation/Regex.h"
#include "CaptureShared/Privacy/RedactionReport.h"

/// Identifiers and credentials taken out of a text before a model or a log sees it.
namespace halvo::SensitiveIdentifierRedaction {

/// `lifeLevel`: numbers of a person's money and identity. `outbound`: credentials too, for what may leave the machine.
enum class Scope { lifeLevel, outbound };

/// One pattern and what makes a match of it count.
struct Detector {
  SensitiveIdentifierKind kind = SensitiveIdentifierKind::credential;
  Regex regex;
  std::size_t group = 0;  ///< the capture that is replaced; 0 is the whole match
  /// How many bytes of the captured text, from its start, are the identifier; 0: none, and the text stays.
  std::size_t (*validate)(std::string_view value) = nullptr;
  /// Where at or behind a byte a match can begin (`IdentifierCandidates`), for a pattern that is too slow to look everywhere; `npos`:
  /// nowhere. Absent: the pattern looks for itself.
  std::size_t (*nextCandidate)(std::string_view text, std::size_t from) = nullptr;
  std::optional<Regex> anchored = {};  ///< the pattern, matching only where the search begins; with `nextCandidate`
};

/// The tables, in the order in which they are applied; compiled once a process.
const std::vector<Detector>& lifeLevelDetectors();
const std::vector<Detector>& credentialDetectors();

/// The text with each identifier replaced by its kind's token and counted in `report`. Bytes that are not UTF-8 become U+FFFD. A text that
/// a pattern gives up on is replaced as a whole by `SecretRedaction::uncheckedText` and counts as one credential. Redacting twice changes
/// nothing. Never throws.
std::string redact(std::string_view text, Scope scope, RedactionReport& report);

/// The text and the report of it alone.
std::pair<std::string, RedactionReport> redact(std::string_view text, Scope scope);

/// Whether a scope's tables find anything. A text that a pattern gives up on counts as one that they do.
bool findsAnything(std::string_view text, Scope scope);

}  // namespace halvo::SensitiveIdentifierRedaction
