#include "CaptureShared/Records/PeriodDigest.h"

#include "CaptureShared/Records/MemoryJSON.h"

namespace halvo {

JSONValue PeriodDigest::encoded() const {
  return JSONObject{{"period_start_ts_ms", periodStartTsMs},
                    {"period_end_ts_ms", periodEndTsMs},
                    {"generated_at_ts_ms", generatedAtTsMs},
                    {"summary", summary},
                    {"facts", MemoryJSON::encoded(facts)},
                    {"lessons", MemoryJSON::encoded(lessons)},
                    {"salvaged", salvaged}};
}

std::optional<PeriodDigest> PeriodDigest::decode(const JSONValue& value) {
  const auto* object = value.objectValue();
  if (!object) return std::nullopt;
  const auto start = object->integer("period_start_ts_ms"), end = object->integer("period_end_ts_ms"),
             generated = object->integer("generated_at_ts_ms");
  auto summary = object->string("summary");
  auto facts = MemoryJSON::facts(object->find("facts"));
  auto lessons = MemoryJSON::texts(object->find("lessons"));
  if (!start || !end || !generated || !summary || !facts || !lessons) return std::nullopt;
  return PeriodDigest{.periodStartTsMs = *start,
                      .periodEndTsMs = *end,
                      .generatedAtTsMs = *generated,
                      .summary = std::move(*summary),
                      .facts = std::move(*facts),
                      .lessons = std::move(*lessons),
                      .salvaged = object->boolean("salvaged").value_or(false)};
}

}  // namespace halvo
