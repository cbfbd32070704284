#include "CaptureShared/Privacy/SensitiveIdentifierRedaction.h"

#include "CaptureShared/Privacy/IdentifierChecks.h"
#include "CaptureShared/Privacy/IdentifierCandidates.h"

/// The patterns. Each begins with a look-behind that also takes a literal backslash escape (\\n, \\r, \\t) for a boundary, since the text
/// can be JSON that is still escaped.
namespace halvo::SensitiveIdentifierRedaction {
namespace {

using namespace IdentifierChecks;
using Kind = SensitiveIdentifierKind;

template <bool (*check)(std::string_view)>
std::size_t whole(std::string_view value) {
  return check(value) ? value.size() : 0;
}

std::size_t any(std::string_view value) { return value.size(); }

/// The greedy pattern also takes a four-letter word in capitals behind the number, and then the check digits are wrong: the last groups
/// are given back one by one.
std::size_t ibanLength(std::string_view value) {
  for (;;) {
    if (isIBAN(value)) return value.size();
    const auto blank = value.rfind(' ');
    if (blank == std::string_view::npos) return 0;
    value = value.substr(0, blank);
  }
}

Detector detector(Kind kind, std::string_view pattern, std::size_t group, std::size_t (*validate)(std::string_view),
                  std::size_t (*nextCandidate)(std::string_view, std::size_t) = nullptr) {
  Detector made{.kind = kind, .regex = Regex(pattern), .group = group, .validate = validate, .nextCandidate = nextCandidate};
  if (nextCandidate) made.anchored.emplace(std::string("\\G(?:").append(pattern).append(")"));
  return made;
}

std::vector<Detector> makeLifeLevel() {
  std::vector<Detector> table;
  const auto add = [&](Kind kind, std::string_view pattern, std::size_t (*validate)(std::string_view),
                       std::size_t (*nextCandidate)(std::string_view, std::size_t) = nullptr) {
    table.push_back(detector(kind, pattern, 1, validate, nextCandidate));
  };
  add(Kind::bankAccountNumber,
      R"re((?:(?<!\w)|(?<=\\[nrt]))([A-Z]{2}\d{2}(?: ?[A-Z0-9]{4}){2,7}(?: ?[A-Z0-9]{1,3})?)\b)re",
      ibanLength);
  add(Kind::ssn,
      R"re((?i)(?:(?<!\w)|(?<=\\[nrt]))(?:ssn|ss#|social\s+security(?:\s+(?:number|no\.?|num|#))?)(?:\s*(?:is|:|#)re"
      R"re(|=|-)\s*)?(?:\s|\\[nrt])*(\d{3}(?:[ \t\r\n./-]{1,2})?\d{2}(?:[ \t\r\n./-]{1,2})?\d{4})(?!\d))re",
      whole<isSSN>);
  add(Kind::ssn,
      R"re((?i)(?:(?<!\w)|(?<=\\[nrt]))itin(?:\s+(?:number|no\.?|num|#))?(?:\s*(?:is|:|#|=|-)\s*)?(?:\s|\\[nrt])re"
      R"re()*(\d{3}(?:[ \t\r\n./-]{1,2})?\d{2}(?:[ \t\r\n./-]{1,2})?\d{4})(?!\d))re",
      whole<isITIN>);
  add(Kind::ssn,
      R"re((?:(?<![\w\-./])|(?<=\\[nrt]))(\d{3}-\d{2}-\d{4})(?![\d\-]|[.,]\d))re",
      whole<isSSN>, IdentifierCandidates::nextAreaNumber);
  add(Kind::bankRoutingNumber,
      R"re((?i)(?:(?<!\w)|(?<=\\[nrt]))(?:routing|aba|rtn|transit)(?:\s+(?:number|no\.?|num|#))?(?:\s*(?:is|:|#|=)re"
      R"re(|-)\s*)?(?:\s|\\[nrt])*(\d{3}(?:[ \t\r\n./-]{1,2})?\d{3}(?:[ \t\r\n./-]{1,2})?\d{3})(?!\d))re",
      whole<isRoutingNumber>);
  add(Kind::bankAccountNumber,
      R"re((?i)(?:(?<!\w)|(?<=\\[nrt]))(?:(?:bank|checking|savings|deposit)\s+account(?:\s+(?:number|no\.?|num|#))re"
      R"re()?|(?:account|acct)\.?(?:\s*(?:number|no\.?|num|#)|(?=\s*:)))(?:\s*(?:is|:|#|=|-)\s*)?(?:\s|\\[nrt])re"
      R"re()*(\d{2,6}(?:[ -]\d{2,6}){1,4}|\d{4,17})(?![\w\-]|[.,]\d))re",
      whole<isAccountNumber>);
  add(Kind::cardNumber,
      R"re((?:(?<![\w\-./])|(?<=\\[nrt]))(\d{4}[ \t\r\n./-]{1,2}\d{4}[ \t\r\n./-]{1,2}\d{4}[ \t\r\n./-]{1,2}\d{4}[ )re"
      R"re(\t\r\n./-]{1,2}\d{3})(?![\d\-]|[.,]\d))re",
      whole<isCardNumber>, IdentifierCandidates::nextDigitGroup);
  add(Kind::cardNumber,
      R"re((?:(?<![\w\-./])|(?<=\\[nrt]))(\d{4}[ \t\r\n./-]{1,2}\d{4}[ \t\r\n./-]{1,2}\d{4}[ \t\r\n./-]{1,2}\d{4})re"
      R"re(|\d{4}[ \t\r\n./-]{1,2}\d{6}[ \t\r\n./-]{1,2}\d{4,5}|\d{15,16})(?![\d\-]|[.,]\d))re",
      whole<isCardNumber>, IdentifierCandidates::nextDigitGroup);
  add(Kind::cardNumber,
      R"re((?i)(?:(?<!\w)|(?<=\\[nrt]))(?:card(?:\s*(?:number|no\.?|#))?|visa|mastercard|amex|discover)re"
      R"re()(\d{4}(?:[ \t\r\n./-]{1,2})?\d{4}(?:[ \t\r\n./-]{1,2})?\d{4}(?:[ \t\r\n./-]{1,2})re"
      R"re()?\d{4}(?:(?:[ \t\r\n./-]{1,2})?\d{3})?|\d{4}(?:[ \t\r\n./-]{1,2})?\d{6}(?:[ \t\r\n./-]{1,2})?\d{4,5})re"
      R"re()(?![\d\-]|[.,]\d))re",
      whole<isCardNumber>);
  // The bare form once more, for what the rows above have left: here a taxpayer number counts too.
  add(Kind::ssn,
      R"re((?:(?<![\w\-./])|(?<=\\[nrt]))(\d{3}-\d{2}-\d{4})(?![\d\-]|[.,]\d))re",
      whole<isSSNOrITIN>, IdentifierCandidates::nextAreaNumber);
  return table;
}

std::vector<Detector> makeCredentials() {
  std::vector<Detector> table;
  const auto add = [&](std::size_t group, std::string_view pattern, std::size_t (*nextCandidate)(std::string_view, std::size_t) = nullptr) {
    table.push_back(detector(Kind::credential, pattern, group, any, nextCandidate));
  };
  add(0, R"re(-{4,5}BEGIN (?:[A-Z0-9]+ )*PRIVATE KEY(?: BLOCK)?-{4,5}[\s\S]*?(?:-{4,5}END (?:[A-Z0-9]+ )re"
         R"re()*PRIVATE KEY(?: BLOCK)?-{4,5}|\z))re");
  add(0, R"re((?:(?<!\w)|(?<=\\[nrt]))(?:(?:sk|rk)_(?:live|test)_[A-Za-z0-9]{16,}|gh[pousr]_[A-Za-z0-9]{36,})re"
         R"re(|github_pat_[A-Za-z0-9_]{22,}|xox[abposr]-[A-Za-z0-9-]{10,}|xapp-\d-[A-Za-z0-9-]{10,})re"
         R"re(|hf_[A-Za-z0-9]{20,}|glpat-[A-Za-z0-9_-]{20,}|ya29\.[A-Za-z0-9_-]{20,}|AIza[0-9A-Za-z_-]{35}|(?:AKIA)re"
         R"re(|ASIA)[A-Z0-9]{16})\b)re");
  add(0, R"re((?:(?<!\w)|(?<=\\[nrt]))sk-(?:[A-Za-z0-9_-]{8,}\r?\n[A-Za-z0-9_-]{8,}|[A-Za-z0-9_-]{20,}))re");
  add(0, R"re((?:(?<!\w)|(?<=\\[nrt]))eyJ[A-Za-z0-9_-]{10,}\.eyJ[A-Za-z0-9_-]{10,}\.[A-Za-z0-9_-]{10,})re",
      IdentifierCandidates::nextWebToken);
  add(1, R"re((?i)(?:(?<!\w)|(?<=\\[nrt]))Bearer\s+([A-Za-z0-9._~+/=-]{20,}))re");
  add(1, R"re((?i)(?:(?<!\w)|(?<=\\[nrt]))Authorization:\s*Basic\s+([A-Za-z0-9+/]{16,}={0,2}))re");
  add(1, R"re((?i)(?:(?<![A-Za-z0-9])|(?<=\\[nrt]))(?:api[_-]?key|secret[_-]?(?:access[_-]?)?key|access[_-]?token)re"
         R"re(|auth[_-]?token|client[_-]?secret|password|passwd)\b"?\s*[:=]\s*"?([^\s"',;()\[\]{}&?#]{8,}))re");
  return table;
}

}  // namespace

const std::vector<Detector>& lifeLevelDetectors() {
  static const auto table = makeLifeLevel();
  return table;
}

const std::vector<Detector>& credentialDetectors() {
  static const auto table = makeCredentials();
  return table;
}

}  // namespace halvo::SensitiveIdentifierRedaction
