#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace halvo {

/// A text as the identifier patterns see it, with the way back to the text it was made from.
///
/// Format characters (zero-width marks and the like) are left out, so that none of them hides a number. Of a run of more than
/// `keptBlanks` white-space characters only the first and the last half are kept: no pattern tells longer runs apart, and a
/// hostile text can't make one count them all. Every piece kept is a whole character.
class NormalizedIdentifierText {
 public:
  static constexpr std::size_t keptBlanks = 16;

  /// `original` must outlive this value and be valid UTF-8.
  explicit NormalizedIdentifierText(std::string_view original);

  std::string_view text() const { return rebuilt_.empty() && offsets_.empty() ? original_ : std::string_view(rebuilt_); }
  bool containsFormatCharacters() const { return containsFormatCharacters_; }
  /// The bytes of the original that stand for bytes [begin, end) of `text`, anything left out between them included.
  std::pair<std::size_t, std::size_t> originalRange(std::size_t begin, std::size_t end) const;

 private:
  std::string_view original_;
  std::string rebuilt_;
  std::vector<std::size_t> offsets_;  ///< of each byte of `rebuilt_` in `original_`; empty while nothing was left out
  bool containsFormatCharacters_ = false;
};

}  // namespace halvo
