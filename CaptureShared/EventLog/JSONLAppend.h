#pragma once

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string_view>

#include "CaptureShared/Foundation/JSONValue.h"

namespace halvo {

/// A row that was not written, or not whole. `what()` is fit for a log: it tells no row.
class JSONLAppendError : public std::runtime_error {
 public:
  enum class Kind { openFailed, shortWrite, encodingFailed };
  static JSONLAppendError openFailed(int code);
  static JSONLAppendError shortWrite(std::size_t expected, std::int64_t actual);
  static JSONLAppendError encodingFailed();

  Kind kind() const { return kind_; }
  int code() const { return code_; }  ///< errno of `openFailed`

 private:
  JSONLAppendError(Kind kind, int code, const std::string& text) : std::runtime_error(text), kind_(kind), code_(code) {}
  Kind kind_;
  int code_;
};

/// Appending whole lines that concurrent processes never interleave: one `write` in append mode a row, no lock, no open handle in between.
namespace JSONLAppend {

/// Appends one row (valid UTF-8, no newline in it). Makes the file 0600 and, when it is missing, its folder 0700, but never the data root. A file that
/// a killed writer left without its last newline gets one in front of the row, in the same write; a row that got behind such a stump all the same
/// (the writer died while this one waited for its turn) is written again on a line of its own. Throws `JSONLAppendError`.
void append(std::string_view row, const std::filesystem::path& file);
/// The same for a value, printed on one line.
void appendValue(const JSONValue& row, const std::filesystem::path& file);

}  // namespace JSONLAppend

}  // namespace halvo
