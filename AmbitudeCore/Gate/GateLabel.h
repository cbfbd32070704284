#pragma once

#include "CaptureShared/Foundation/RawValue.h"

namespace halvo {

/// What a person said of one decision of the gate.
enum class GateLabel { shouldHaveSpoken, rightToStayQuiet, shouldNotHaveSpoken, rightToSpeak };
template <>
struct RawValues<GateLabel> {
  static constexpr std::array table{
      std::pair{GateLabel::shouldHaveSpoken, "should_have_spoken"}, std::pair{GateLabel::rightToStayQuiet, "right_to_stay_quiet"},
      std::pair{GateLabel::shouldNotHaveSpoken, "should_not_have_spoken"}, std::pair{GateLabel::rightToSpeak, "right_to_speak"}};
};

}  // namespace halvo
