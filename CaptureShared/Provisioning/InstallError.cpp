#include "CaptureShared/Provisioning/InstallError.h"

#include "CaptureShared/Foundation/Translation.h"

namespace halvo {
namespace {

/// The sentence that a transport's text holds in quotes, else the whole text.
std::string sentence(const std::string& text) {
  const auto begin = text.find('"');
  const auto end = begin == std::string::npos ? begin : text.find('"', begin + 1);
  return end == std::string::npos ? text : text.substr(begin + 1, end - begin - 1);
}

}  // namespace

InstallError InstallError::httpStatus(std::string file, int status) {
  return {Kind::httpStatus, std::move(file), tr("the download server answered {}", status)};
}

InstallError InstallError::checksumMismatch(std::string file) {
  const auto words = tr("{} didn't match its published checksum, so it was thrown away", file);
  return {Kind::checksumMismatch, std::move(file), words};
}

InstallError InstallError::sizeMismatch(std::string file, std::int64_t expected, std::int64_t actual) {
  return {Kind::sizeMismatch, std::move(file), tr("{} bytes instead of {}", actual, expected)};
}

InstallError InstallError::network(std::string file, const std::string& reason) {
  return {Kind::network, std::move(file),
          tr("the connection dropped ({}); it picks up where it left off when the connection is back", sentence(reason))};
}

InstallError InstallError::fileSystem(std::string file, const std::string& message) { return {Kind::fileSystem, std::move(file), message}; }

InstallError InstallError::unsupportedPlatform(std::string file) {
  return {Kind::unsupportedPlatform, std::move(file), tr("this Mac can't check the download's checksum")};
}

}  // namespace halvo
