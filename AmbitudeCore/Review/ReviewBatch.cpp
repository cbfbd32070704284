#include "AmbitudeCore/Review/ReviewBatch.h"

#include <algorithm>
#include <charconv>

#include "AmbitudeCore/Review/RampSampleSelector.h"
#include "CaptureShared/Foundation/JSONValue.h"

namespace halvo {

namespace {

using namespace RampSampleSelector;

JSONValue parsed(const std::string& line) { return JSONValue::parse(line).value_or(JSONValue()); }

JSONValue encoded(const Provenance& provenance) {
  JSONObject object{{"population", provenance.stratumPopulation}, {"batchSize", provenance.batchSize}, {"topUp", provenance.topUp}};
  if (provenance.stratum) object.set("kind", rawValue(provenance.stratum->kind)), object.set("value", provenance.stratum->value);
  return object;
}
std::optional<Provenance> decodedProvenance(const JSONObject& object, SamplingMode mode, std::uint64_t seed) {
  const auto population = object.integer("population"), size = object.integer("batchSize");
  const auto topUp = object.boolean("topUp");
  if (!population || !size || !topUp) return std::nullopt;
  Provenance made{.mode = mode, .stratumPopulation = *population, .batchSize = *size, .seed = seed, .topUp = *topUp};
  const auto kind = fromRawValue<Stratum::Kind>(object.string("kind").value_or(""));
  if (auto value = object.string("value"); kind && value) made.stratum = Stratum{*kind, std::move(*value)};
  return made;
}

JSONValue encoded(const GateDecisionGap& gap) {
  return JSONObject{{"fromMs", gap.fromMs}, {"toMs", gap.toMs}, {"isOpen", gap.isOpen}};
}
std::optional<GateDecisionGap> decodedGap(const JSONValue& value) {
  const auto* object = value.objectValue();
  const auto from = object ? object->integer("fromMs") : std::nullopt, to = object ? object->integer("toMs") : std::nullopt;
  if (!from || !to) return std::nullopt;
  return GateDecisionGap{*from, *to, object->boolean("isOpen").value_or(false)};
}

JSONValue encoded(const ReviewBatch::Item& item) {
  const auto& sample = item.sample;
  JSONValue::Array reasons;
  for (const auto reason : sample.reasons) reasons.emplace_back(rawValue(reason));
  JSONObject object{{"stage", rawValue(item.stage)},
                    {"tick", parsed(sample.tick.encode())},
                    {"provenance", encoded(sample.provenance)},
                    {"score", sample.score},
                    {"reasons", std::move(reasons)}};
  if (item.answer) object.set("answer", rawValue(*item.answer));
  if (sample.decision) object.set("decision", parsed(sample.decision->encode()));
  if (sample.gap) object.set("gap", encoded(*sample.gap));
  return object;
}
std::optional<ReviewBatch::Item> decodedItem(const JSONValue& value, SamplingMode mode, std::uint64_t seed) {
  const auto* object = value.objectValue();
  const auto *drawnValue = object ? object->find("provenance") : nullptr, *tickValue = object ? object->find("tick") : nullptr;
  const auto* provenance = drawnValue ? drawnValue->objectValue() : nullptr;
  const auto tick = tickValue ? ClassifierTick::decode(tickValue->dump()) : std::nullopt;
  const auto stage = object ? fromRawValue<ReviewBatch::Stage>(object->string("stage").value_or("")) : std::nullopt;
  const auto drawn = provenance ? decodedProvenance(*provenance, mode, seed) : std::nullopt;
  const auto atMs = tick ? tick->atMs() : std::nullopt;
  if (!stage || !drawn || !atMs) return std::nullopt;
  ReviewBatch::Item item{.sample = {.atMs = *atMs, .tick = *tick, .score = object->number("score").value_or(0), .provenance = *drawn},
                         .stage = *stage,
                         .answer = fromRawValue<RampLabelSubmission::Layer1Answer>(object->string("answer").value_or(""))};
  if (const auto* decision = object->find("decision")) item.sample.decision = GateDecisionRecord::decode(decision->dump());
  if (const auto* gap = object->find("gap")) item.sample.gap = decodedGap(*gap);
  if (const auto* reasons = object->find("reasons"); reasons && reasons->arrayValue())
    for (const auto& reason : *reasons->arrayValue())
      if (const auto known = fromRawValue<Reason>(reason.stringValue() ? *reason.stringValue() : "")) item.sample.reasons.push_back(*known);
  return item;
}

}  // namespace

ReviewBatch ReviewBatch::make(std::vector<Sample> samples, SamplingMode mode, std::uint64_t seed, std::int64_t drawnAtMs) {
  std::ranges::sort(samples, {}, [seed](const Sample& sample) { return seededKey(seed, sample.atMs); });
  ReviewBatch batch{.mode = mode, .seed = seed, .drawnAtMs = drawnAtMs};
  for (auto& sample : samples) batch.items.push_back({.sample = std::move(sample)});
  return batch;
}

std::string ReviewBatch::encode() const {
  JSONValue::Array list;
  for (const auto& item : items) list.push_back(encoded(item));
  // The seed as text: a number of JSON has no 64 bits.
  JSONObject object{{"v", 1},
                    {"mode", rawValue(mode)},
                    {"seed", std::to_string(seed)},
                    {"drawnAtMs", drawnAtMs},
                    {"items", std::move(list)}};
  if (notice) object.set("notice", *notice);
  return JSONValue(std::move(object)).dump();
}

std::optional<ReviewBatch> ReviewBatch::decode(std::string_view text) {
  const auto value = JSONValue::parse(text);
  const auto* object = value ? value->objectValue() : nullptr;
  if (!object || object->integer("v") != 1) return std::nullopt;
  const auto mode = fromRawValue<SamplingMode>(object->string("mode").value_or(""));
  const auto seedText = object->string("seed").value_or("");
  const auto* list = object->find("items");
  ReviewBatch batch;
  const auto [end, error] = std::from_chars(seedText.data(), seedText.data() + seedText.size(), batch.seed);
  if (!mode || !list || !list->arrayValue() || error != std::errc() || end != seedText.data() + seedText.size()) return std::nullopt;
  batch.mode = *mode;
  batch.drawnAtMs = object->integer("drawnAtMs").value_or(0);
  batch.notice = object->string("notice");
  for (const auto& one : *list->arrayValue()) {
    auto item = decodedItem(one, *mode, batch.seed);
    if (!item) return std::nullopt;
    batch.items.push_back(std::move(*item));
  }
  return batch;
}

}  // namespace halvo
