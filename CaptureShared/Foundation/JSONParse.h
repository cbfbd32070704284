#pragma once

#include <simdjson.h>

#include "CaptureShared/Foundation/JSONValue.h"

namespace halvo {

/// For decoders of rows that are read by the thousand: a parsed element as a value tree.
JSONValue fromElement(simdjson::dom::element element);

}  // namespace halvo
