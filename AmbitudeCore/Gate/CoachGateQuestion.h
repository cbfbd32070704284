#pragma once

#include <string>
#include <string_view>

/// The closing part of the gate's message, readable to a model without a schema.
namespace halvo::CoachGateQuestion {

extern const std::string_view summaryDescription;
/// One more sentence that only the schema's description of the summary carries.
extern const std::string_view summaryExample;
extern const std::string_view shouldCheckInDescription;

const std::string& text();

}  // namespace halvo::CoachGateQuestion
