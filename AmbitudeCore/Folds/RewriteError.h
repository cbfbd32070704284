#pragma once

#include <stdexcept>
#include <string>

namespace halvo {

/// A list of rows that could not be changed; the file is as it was.
class RewriteError : public std::runtime_error {
 public:
  enum class Kind {
    renameFailed,   ///< the new file could not be written or take the old one's name
    notFound,       ///< the row is not there any more
    encodingFailed  ///< a text that is not UTF-8
  };
  static RewriteError renameFailed(int code) { return {Kind::renameFailed, code, "could not save: errno " + std::to_string(code)}; }
  static RewriteError notFound(const std::string& text) { return {Kind::notFound, 0, text}; }
  static RewriteError encodingFailed(const std::string& text) { return {Kind::encodingFailed, 0, text}; }

  Kind kind() const { return kind_; }
  int code() const { return code_; }  ///< errno of `renameFailed`

 private:
  RewriteError(Kind kind, int code, const std::string& text) : std::runtime_error(text), kind_(kind), code_(code) {}
  Kind kind_;
  int code_;
};

}  // namespace halvo
