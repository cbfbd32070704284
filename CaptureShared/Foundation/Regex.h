#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace halvo {

/// A match was given up because the text would take too long (the match limit, 100,000 steps). The caller withholds the
/// text; passing it on unchecked is never right.
class RegexLimitExceeded : public std::runtime_error {
 public:
  RegexLimitExceeded() : std::runtime_error("a pattern gave up on this text") {}
};

/// A compiled pattern: PCRE2 in UTF and UCP mode, JIT compiled, safe to share between threads. Bytes that are not UTF-8 match
/// nothing.
class Regex {
 public:
  enum class Flag : unsigned { none = 0, caseless = 1, dotAll = 2 };

  /// Throws `std::invalid_argument` with the pattern and the place when it does not compile.
  explicit Regex(std::string_view pattern, Flag flags = Flag::none);
  Regex(Regex&&) noexcept;
  Regex& operator=(Regex&&) noexcept;
  ~Regex();

  struct Span {
    std::size_t begin = 0, end = 0;  ///< bytes of the subject
    std::size_t size() const { return end - begin; }
    bool operator==(const Span&) const = default;
  };
  struct Match {
    std::vector<std::optional<Span>> groups;  ///< [0] is the whole match
    Span whole() const { return *groups[0]; }
    /// The text of a group in the subject it was found in; absent for a group that took no part.
    std::optional<std::string_view> text(std::string_view subject, std::size_t group) const;
  };

  /// The first match at or behind byte `from`. Throws `RegexLimitExceeded`.
  std::optional<Match> find(std::string_view subject, std::size_t from = 0) const;
  bool matches(std::string_view subject) const { return find(subject).has_value(); }
  /// Every match, left to right, replaced by a literal text. Throws `RegexLimitExceeded`.
  std::string replaceAll(std::string_view subject, std::string_view literal) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace halvo
