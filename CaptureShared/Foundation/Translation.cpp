#include "CaptureShared/Foundation/Translation.h"

#include <atomic>

namespace halvo {

namespace {

std::atomic<Translator> translator_ = nullptr;

}  // namespace

void setTranslator(Translator translator) { translator_ = translator; }

std::string tr(std::string_view source) {
  const auto translate = translator_.load();
  std::string text(source);
  return translate && !text.empty() ? translate(text) : text;
}

}  // namespace halvo
