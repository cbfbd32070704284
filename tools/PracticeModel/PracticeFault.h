#pragma once

#include "CaptureShared/Foundation/RawValue.h"

namespace halvo {

/// The ways in which the practice server can be a bad one. Each but `loading` concerns chat requests only.
enum class PracticeFault {
  none,
  loading,       ///< every path answers 503 "Loading model" at first
  slow,          ///< a pause before the answer, and a short one between the pieces of a stream
  hang,          ///< takes the request and never answers
  garbage,       ///< answers bytes that are no HTTP
  badJSON,       ///< answers 200 with a body, or a stream, that is no JSON
  dieMidStream,  ///< closes the connection half way through the answer
  http500,
  empty,     ///< a reply without a word
  truncated  ///< a reply cut off by its token cap
};
template <>
struct RawValues<PracticeFault> {
  static constexpr std::array table{std::pair{PracticeFault::none, "none"},
                                    std::pair{PracticeFault::loading, "loading"},
                                    std::pair{PracticeFault::slow, "slow"},
                                    std::pair{PracticeFault::hang, "hang"},
                                    std::pair{PracticeFault::garbage, "garbage"},
                                    std::pair{PracticeFault::badJSON, "bad-json"},
                                    std::pair{PracticeFault::dieMidStream, "die-mid-stream"},
                                    std::pair{PracticeFault::http500, "http-500"},
                                    std::pair{PracticeFault::empty, "empty"},
                                    std::pair{PracticeFault::truncated, "truncated"}};
};

}  // namespace halvo
