#pragma once

namespace halvo {

/// For a program that handles keys, screens or conversations: no core file of it, and no debugger of the account reads its memory.
void turnCoreDumpsOff();

}  // namespace halvo
