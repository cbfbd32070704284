#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "AmbitudeCore/Backends/ChatTypes.h"

/// Every tool the coach has or had.
namespace halvo {

namespace CoachTools {

/// "Say nothing": one character of the private-use area that no model writes by accident.
inline constexpr std::string_view silenceSentinel = "\uE000";

/// The live tools and the older road's: `do_not_disturb`, `open_ui`, `close_ui`, `check_ui_state`.
const std::vector<ToolSpec>& all();

using Names = std::set<std::string, std::less<>>;
/// Tools of earlier versions that still stand in old logs.
const Names& retiredToolNames();
/// An old spelling as the present one; any other name as it is.
std::string_view canonicalToolName(std::string_view name);
/// What counts as a write of the intention, old and new.
const Names& writeIntentionToolNames();
/// Present and retired.
const Names& recognizedToolNames();
/// Never shown back to the model.
const Names& unreplayableToolNames();
/// The tools whose call changes something.
const Names& stateChangingToolNames();

}  // namespace CoachTools

/// The five that the live coach may use. It has no way to open or close a window: the check-in window is open when it speaks.
namespace Layer3Tools {

const std::vector<ToolSpec>& all();
/// The five names and the retired spellings of intention writes.
const CoachTools::Names& replayableToolNames();

}  // namespace Layer3Tools

}  // namespace halvo
