#include "CaptureShared/Privacy/SecretRedaction.h"

#include <array>

#include "CaptureShared/Foundation/Regex.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Privacy/RedactionReport.h"

namespace halvo::SecretRedaction {
namespace {

const std::array<Regex, 3>& patterns() {
  static const std::array<Regex, 3> compiled{
      Regex(R"re(\bsk-[A-Za-z0-9._-]{8,})re"), Regex(R"re((?i)\bBearer\s+[A-Za-z0-9._~+/=-]{8,})re"),
      Regex(R"re((?i)\b(api[_-]?key|authorization)\b\"?\s*[:=]\s*\"?[A-Za-z0-9._~+/=-]{8,}\"?)re")};
  return compiled;
}

std::string replaceEach(const Regex& pattern, std::string&& text, RedactionReport& report) {
  auto found = pattern.find(text);
  if (!found) return std::move(text);
  std::string out;
  std::size_t copied = 0;
  for (; found; found = pattern.find(text, copied)) {
    const auto span = found->whole();
    out.append(text, copied, span.begin - copied).append(token);
    copied = span.end;
    report.count(SensitiveIdentifierKind::credential);
  }
  return out.append(text, copied, std::string::npos);
}

}  // namespace

std::string redact(std::string_view text, RedactionReport& report) {
  RedactionReport found;
  try {
    // A stray byte would hide the text around it from the patterns.
    std::string redacted = Text::scrubbed(text);
    for (const auto& pattern : patterns()) redacted = replaceEach(pattern, std::move(redacted), found);
    report.merge(found);
    return redacted;
  } catch (const RegexLimitExceeded&) {
    report.count(SensitiveIdentifierKind::credential);
    return std::string(uncheckedText);
  }
}

std::string redact(std::string_view text) {
  RedactionReport report;
  return redact(text, report);
}

}  // namespace halvo::SecretRedaction
