#include "AmbitudeCore/Coach/CoachTools.h"

#include <optional>

#include "AmbitudeCore/Coach/CoachToolTexts.h"

namespace halvo {

namespace {

JSONValue property(const char* type, const char* description) {
  JSONObject schema{{"type", type}};
  if (description) schema.set("description", description);
  return schema;
}

JSONValue choice(const char* description, const std::vector<const char*>& values) {
  JSONValue::Array list;
  for (const char* value : values) list.emplace_back(value);
  return JSONObject{{"type", "string"}, {"description", description}, {"enum", std::move(list)}};
}

JSONValue minutes(const char* description, int least, int most) {
  return JSONObject{{"type", "integer"}, {"description", description}, {"minimum", least}, {"maximum", most}};
}

ToolSpec tool(const char* name, const char* description, JSONObject properties, const std::vector<const char*>& required) {
  JSONValue::Array needed;
  for (const char* key : required) needed.emplace_back(key);
  return {.name = name,
          .description = description,
          .parameters = JSONObject{{"type", "object"}, {"properties", std::move(properties)}, {"required", std::move(needed)}}};
}

std::vector<ToolSpec> makeLive() {
  namespace T = CoachToolTexts;
  const JSONValue option = JSONObject{{"type", "object"},
                                      {"properties", JSONObject{{"id", property("string", nullptr)},
                                                                {"label", property("string", nullptr)},
                                                                {"hint", property("string", T::proposeOptionsHint)}}},
                                      {"required", JSONValue::Array{"id", "label"}}};
  return {
      tool("write_current_intention", T::writeCurrentIntention,
           {{"notes", property("string", T::writeCurrentIntentionNotes)},
            {"horizon_minutes", minutes(T::writeCurrentIntentionHorizon, 1, 10080)}},
           {"notes"}),
      tool("correct_judgment", T::correctJudgment,
           {{"app", property("string", T::correctJudgmentApp)}, {"project", property("string", T::correctJudgmentProject)}},
           {"app", "project"}),
      tool("go_quiet", T::goQuiet,
           {{"minutes", minutes(T::goQuietMinutes, 5, 1440)},
            {"rest_of_day", property("boolean", T::goQuietRestOfDay)},
            {"message", property("string", T::goQuietMessage)}},
           {"message"}),
      tool("remember_correction", T::rememberCorrection,
           {{"correction", property("string", T::rememberCorrectionCorrection)},
            {"lasts", choice(T::rememberCorrectionLasts, {"until_changed", "rest_of_today", "next_few_hours"})},
            {"scope", choice(T::rememberCorrectionScope, {"whether_to_speak", "what_to_say"})}},
           {"correction", "lasts"}),
      tool("propose_options", T::proposeOptions,
           {{"setting", property("string", T::proposeOptionsSetting)},
            {"title", property("string", T::proposeOptionsTitle)},
            {"message", property("string", T::proposeOptionsMessage)},
            {"options", JSONObject{{"type", "array"}, {"items", option}}}},
           {"setting", "title", "message", "options"}),
  };
}

std::vector<ToolSpec> makeAll() {
  namespace T = CoachToolTexts;
  auto tools = makeLive();
  tools.push_back(tool("do_not_disturb", T::doNotDisturb,
                       {{"minutes", minutes(T::doNotDisturbMinutes, 5, 60)},
                        {"message", property("string", T::doNotDisturbMessage)},
                        {"expectation", property("string", T::doNotDisturbExpectation)}},
                       {"minutes", "message"}));
  tools.push_back(tool("open_ui", T::openUI, {{"message", property("string", T::openUIMessage)}}, {"message"}));
  tools.push_back(tool("close_ui", T::closeUI, {}, {}));
  tools.push_back(tool("check_ui_state", T::checkUIState, {}, {}));
  return tools;
}

CoachTools::Names namesOf(const std::vector<ToolSpec>& tools) {
  CoachTools::Names names;
  for (const auto& tool : tools) names.insert(tool.name);
  return names;
}

}  // namespace

namespace CoachTools {

const std::vector<ToolSpec>& all() {
  static const std::vector<ToolSpec> tools = makeAll();
  return tools;
}
const Names& retiredToolNames() {
  static const Names names{"stay_silent", "write_task"};
  return names;
}
std::string_view canonicalToolName(std::string_view name) { return name == "write_task" ? "write_current_intention" : name; }
const Names& writeIntentionToolNames() {
  static const Names names{"write_current_intention", "write_task"};
  return names;
}
const Names& recognizedToolNames() {
  static const Names names = [] {
    auto every = namesOf(all());
    every.insert(retiredToolNames().begin(), retiredToolNames().end());
    return every;
  }();
  return names;
}
const Names& unreplayableToolNames() {
  static const Names names = [] {
    Names rest;
    for (const auto& name : recognizedToolNames())
      if (!Layer3Tools::replayableToolNames().contains(name)) rest.insert(name);
    return rest;
  }();
  return names;
}
const Names& stateChangingToolNames() {
  static const Names names = [] {
    auto every = recognizedToolNames();
    every.erase("check_ui_state");
    every.erase("stay_silent");
    return every;
  }();
  return names;
}

}  // namespace CoachTools

namespace Layer3Tools {

const std::vector<ToolSpec>& all() {
  static const std::vector<ToolSpec> tools = makeLive();
  return tools;
}
const CoachTools::Names& replayableToolNames() {
  static const CoachTools::Names names = [] {
    auto five = namesOf(all());
    five.insert(CoachTools::writeIntentionToolNames().begin(), CoachTools::writeIntentionToolNames().end());
    return five;
  }();
  return names;
}

}  // namespace Layer3Tools

}  // namespace halvo
