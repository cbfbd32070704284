#pragma once

#include <cstdint>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <string>

/// Which moments were answered in a review already.
namespace halvo::AnsweredMoments {

/// A batch drawn without the answered moments would ask them again: the caller must not go on.
class ReadError : public std::runtime_error {
 public:
  enum class Kind { openFailed };
  static ReadError openFailed(const std::string& text) { return ReadError(text); }
  Kind kind() const { return Kind::openFailed; }

 private:
  using std::runtime_error::runtime_error;
};

/// The times of the judgments that have a review's label. Throws `ReadError`, also when there is no database: `LabelsSchema::create` makes
/// an empty one.
std::set<std::int64_t> rampLabeledTickMs(const std::filesystem::path& labelsPath);

}  // namespace halvo::AnsweredMoments
