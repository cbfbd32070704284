#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "AmbitudeCore/Backends/ChatTypes.h"

/// What a conversation looks like to a server that is not this computer. Pure, and the same for the same message wherever it stands, so
/// that a provider's prefix cache goes on matching.
namespace halvo::OutboundRedaction {

/// Identifiers and credentials in a text replaced: for what a system message takes in that we did not write ourselves.
std::string redactedText(std::string_view text);

/// A copy in which identifiers and credentials are replaced in every message but a system one: in its content, its thinking, and the texts
/// and numbers of its tool calls' arguments. A piece of reasoning details that holds one is left out whole, since a provider that signed
/// it would refuse it altered.
std::vector<ChatMessage> redacted(const std::vector<ChatMessage>& messages);

/// The strings and numbers of a value redacted at any depth, each seen together with the key it stands under ("password": ...).
JSONValue redacted(const JSONValue& value);

}  // namespace halvo::OutboundRedaction
