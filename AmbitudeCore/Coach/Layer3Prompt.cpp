#include "AmbitudeCore/Coach/Layer3Prompt.h"

#include "AmbitudeCore/Coach/Layer3PromptText.h"

namespace halvo::Layer3Prompt {

namespace {

std::string join(Variant variant) {
  std::string text;
  for (const auto& paragraph : Layer3PromptText::paragraphs()) {
    const char* words = variant == Variant::online || paragraph.shared ? paragraph.online : paragraph.local;
    if (!words) continue;
    if (!text.empty()) text += "\n\n";
    text += words;
  }
  return text;
}

}  // namespace

const std::string& text(Variant variant) {
  static const std::string online = join(Variant::online), local = join(Variant::local);
  switch (variant) {
    case Variant::online: return online;
    case Variant::local: return local;
  }
  return online;
}

}  // namespace halvo::Layer3Prompt
