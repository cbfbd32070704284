#include "CaptureShared/Records/MemoryJSON.h"

#include <cmath>

namespace halvo::MemoryJSON {

namespace {

template <class T, class F>
JSONValue list(const std::vector<T>& items, F&& encode) {
  JSONValue::Array array;
  array.reserve(items.size());
  for (const auto& item : items) array.push_back(encode(item));
  return array;
}

/// Absent as soon as one item is.
template <class T, class F>
std::optional<std::vector<T>> items(const JSONValue* value, F&& decode) {
  const auto* array = value ? value->arrayValue() : nullptr;
  if (!array) return std::nullopt;
  std::vector<T> found;
  found.reserve(array->size());
  for (const auto& entry : *array) {
    auto item = decode(entry);
    if (!item) return std::nullopt;
    found.push_back(std::move(*item));
  }
  return found;
}

std::optional<std::string> text(const JSONValue& value) {
  const auto* found = value.stringValue();
  return found ? std::optional(*found) : std::nullopt;
}

}  // namespace

JSONValue encoded(const std::vector<std::string>& texts) {
  return list(texts, [](const std::string& item) { return JSONValue(item); });
}
JSONValue encoded(const std::vector<std::int64_t>& times) {
  return list(times, [](std::int64_t item) { return JSONValue(item); });
}
JSONValue encoded(const std::vector<MemoryFact>& facts) {
  return list(facts, [](const MemoryFact& fact) -> JSONValue {
    return JSONObject{
        {"text", fact.text}, {"provenance", rawValue(fact.provenance)}, {"source_event_ts_ms", encoded(fact.sourceEventTsMs)}};
  });
}
JSONValue encoded(const std::vector<MemoryThread>& threads) {
  return list(threads, [](const MemoryThread& thread) -> JSONValue {
    return JSONObject{{"name", thread.name}, {"status", rawValue(thread.status)}, {"notes", thread.notes}};
  });
}

std::optional<std::vector<std::string>> texts(const JSONValue* value) { return items<std::string>(value, text); }

std::optional<std::vector<std::int64_t>> times(const JSONValue* value) {
  return items<std::int64_t>(value, [](const JSONValue& entry) -> std::optional<std::int64_t> {
    const auto number = entry.numberValue();
    // Past this a double is no whole number of milliseconds any more.
    if (!number || std::abs(*number) > 9e15) return std::nullopt;
    return static_cast<std::int64_t>(*number);
  });
}

std::optional<std::vector<MemoryFact>> facts(const JSONValue* value) {
  return items<MemoryFact>(value, [](const JSONValue& entry) -> std::optional<MemoryFact> {
    const auto* object = entry.objectValue();
    auto words = object ? object->string("text") : std::nullopt;
    auto sources = object ? times(object->find("source_event_ts_ms")) : std::nullopt;
    if (!words || !sources) return std::nullopt;
    const bool isAsserted = object->string("provenance") == rawValue(MemoryFactProvenance::asserted);
    return MemoryFact{std::move(*words), isAsserted ? MemoryFactProvenance::asserted : MemoryFactProvenance::inferred, std::move(*sources)};
  });
}

std::optional<std::vector<MemoryThread>> threads(const JSONValue* value) {
  return items<MemoryThread>(value, [](const JSONValue& entry) -> std::optional<MemoryThread> {
    const auto* object = entry.objectValue();
    auto name = object ? object->string("name") : std::nullopt;
    if (!name) return std::nullopt;
    const auto status = fromRawValue<MemoryThreadStatus>(object->string("status").value_or(""));
    return MemoryThread{std::move(*name), status.value_or(MemoryThreadStatus::active), object->string("notes").value_or("")};
  });
}

}  // namespace halvo::MemoryJSON
