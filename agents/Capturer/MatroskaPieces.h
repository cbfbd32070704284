#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace halvo {

/// Cuts a Matroska stream, as it comes, into its whole elements: what is cut there is still a stream that plays.
class MatroskaPieces {
 public:
  struct Piece {
    std::string_view bytes;  ///< valid until the next call
    bool isCluster = false;  ///< it holds frames
  };

  void feed(std::string_view bytes);
  /// The next whole element below the segment, or the segment's own head; absent until more is fed. Throws `std::runtime_error` for bytes
  /// that are no such stream.
  std::optional<Piece> next();

  /// An element of exactly `size` bytes, from 9 on, that every reader passes over.
  static std::string padding(std::size_t size);

 private:
  std::string bytes_;
  std::size_t at_ = 0;
};

}  // namespace halvo
