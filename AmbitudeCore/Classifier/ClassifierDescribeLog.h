#pragma once

#include <cstdint>
#include <filesystem>
#include <string_view>

/// `classifier-describe.jsonl`: what the model saw on the screen, redacted, one row for each description.
namespace halvo::ClassifierDescribeLog {

std::filesystem::path url(const std::filesystem::path& dataRoot);
/// Redacts and appends {at_ms, text}. Throws `JSONLAppendError`.
void append(std::int64_t atMs, std::string_view description, const std::filesystem::path& file);

}  // namespace halvo::ClassifierDescribeLog
