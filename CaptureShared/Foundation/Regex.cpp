#include "CaptureShared/Foundation/Regex.h"

#include <fmt/format.h>

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

namespace halvo {

namespace {

/// Steps before a match is given up. At the library's own limit a hostile text of 64 KB can take 6 s.
constexpr std::uint32_t matchLimit = 100'000;

struct MatchContext {
  pcre2_match_context* context = pcre2_match_context_create(nullptr);
  MatchContext() {
    pcre2_set_match_limit(context, matchLimit);
    pcre2_set_depth_limit(context, matchLimit);
  }
  ~MatchContext() { pcre2_match_context_free(context); }
};

}  // namespace

struct Regex::Impl {
  pcre2_code* code = nullptr;
  std::uint32_t captures = 0;
  ~Impl() { pcre2_code_free(code); }
};

Regex::Regex(std::string_view pattern, Flag flags) : impl_(std::make_unique<Impl>()) {
  std::uint32_t options = PCRE2_UTF | PCRE2_UCP | PCRE2_MATCH_INVALID_UTF;
  if (static_cast<unsigned>(flags) & static_cast<unsigned>(Flag::caseless)) options |= PCRE2_CASELESS;
  if (static_cast<unsigned>(flags) & static_cast<unsigned>(Flag::dotAll)) options |= PCRE2_DOTALL;
  int error = 0;
  PCRE2_SIZE place = 0;
  impl_->code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(), options, &error, &place, nullptr);
  if (!impl_->code) {
    PCRE2_UCHAR message[160] = {};
    pcre2_get_error_message(error, message, sizeof message);
    throw std::invalid_argument(fmt::format("pattern {}: {} at {}", pattern, reinterpret_cast<const char*>(message), place));
  }
  // Without JIT support the interpreter does the same, slower.
  pcre2_jit_compile(impl_->code, PCRE2_JIT_COMPLETE);
  pcre2_pattern_info(impl_->code, PCRE2_INFO_CAPTURECOUNT, &impl_->captures);
}

Regex::Regex(Regex&&) noexcept = default;
Regex& Regex::operator=(Regex&&) noexcept = default;
Regex::~Regex() = default;

std::optional<std::string_view> Regex::Match::text(std::string_view subject, std::size_t group) const {
  if (group >= groups.size() || !groups[group]) return std::nullopt;
  return subject.substr(groups[group]->begin, groups[group]->size());
}

std::optional<Regex::Match> Regex::find(std::string_view subject, std::size_t from) const {
  if (from > subject.size()) return std::nullopt;
  thread_local const MatchContext context;
  const std::unique_ptr<pcre2_match_data, void (*)(pcre2_match_data*)> data(pcre2_match_data_create(impl_->captures + 1, nullptr),
                                                                            pcre2_match_data_free);
  const int found = pcre2_match(impl_->code, reinterpret_cast<PCRE2_SPTR>(subject.data()), subject.size(), from, 0, data.get(), context.context);
  if (found == PCRE2_ERROR_NOMATCH) return std::nullopt;
  // Every other failure (a limit, no memory for the JIT stack) leaves the text unchecked, which the caller must not pass on.
  if (found < 0) throw RegexLimitExceeded();
  const auto* offsets = pcre2_get_ovector_pointer(data.get());
  Match match;
  match.groups.resize(impl_->captures + 1);
  for (std::uint32_t i = 0; i <= impl_->captures; ++i)
    if (offsets[2 * i] != PCRE2_UNSET) match.groups[i] = Span{offsets[2 * i], offsets[2 * i + 1]};
  return match;
}

std::string Regex::replaceAll(std::string_view subject, std::string_view literal) const {
  std::string out;
  std::size_t copied = 0, from = 0;
  while (const auto match = find(subject, from)) {
    const auto whole = match->whole();
    out += subject.substr(copied, whole.begin - copied);
    out += literal;
    copied = whole.end;
    from = whole.end;
    if (whole.size() > 0) continue;
    // Behind an empty match the search goes on at the next code point, never inside one.
    for (++from; from < subject.size() && (static_cast<unsigned char>(subject[from]) & 0xC0) == 0x80;) ++from;
  }
  out += subject.substr(std::min(copied, subject.size()));
  return out;
}

}  // namespace halvo
