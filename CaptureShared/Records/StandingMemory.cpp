#include "CaptureShared/Records/StandingMemory.h"

#include "CaptureShared/Records/MemoryJSON.h"

namespace halvo {

JSONValue StandingMemory::encoded() const {
  JSONObject object{{"regenerated_at_ts_ms", regeneratedAtTsMs}, {"digest_count", digestCount},
                    {"threads", MemoryJSON::encoded(threads)},   {"lessons", MemoryJSON::encoded(lessons)},
                    {"facts", MemoryJSON::encoded(facts)},       {"salvaged", salvaged}};
  if (seed) object.set("seed", *seed);
  if (salvageDetail) object.set("salvage_detail", *salvageDetail);
  return object;
}

std::optional<StandingMemory> StandingMemory::decode(const JSONValue& value) {
  const auto* object = value.objectValue();
  if (!object) return std::nullopt;
  const auto regenerated = object->integer("regenerated_at_ts_ms"), count = object->integer("digest_count");
  auto threads = MemoryJSON::threads(object->find("threads"));
  auto lessons = MemoryJSON::texts(object->find("lessons"));
  auto facts = MemoryJSON::facts(object->find("facts"));
  if (!regenerated || !count || !threads || !lessons || !facts) return std::nullopt;
  return StandingMemory{.regeneratedAtTsMs = *regenerated,
                        .digestCount = *count,
                        .threads = std::move(*threads),
                        .lessons = std::move(*lessons),
                        .facts = std::move(*facts),
                        .salvaged = object->boolean("salvaged").value_or(false),
                        .seed = object->integer("seed"),
                        .salvageDetail = object->string("salvage_detail")};
}

JSONValue SequentialMemoryState::encoded() const {
  return JSONObject{{"standing_memory", standingMemory.encoded()},
                    {"folded_period_starts_ts_ms", MemoryJSON::encoded(foldedPeriodStartsTsMs)}};
}

std::optional<SequentialMemoryState> SequentialMemoryState::decode(const JSONValue& value) {
  const auto* memory = value.find("standing_memory");
  auto standing = memory ? StandingMemory::decode(*memory) : std::nullopt;
  auto starts = MemoryJSON::times(value.find("folded_period_starts_ts_ms"));
  if (!standing || !starts) return std::nullopt;
  return SequentialMemoryState{std::move(*standing), std::move(*starts)};
}

}  // namespace halvo
