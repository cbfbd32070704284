#pragma once

#include <vector>

/// The paragraphs of the coach's character.
namespace halvo::Layer3PromptText {

struct Paragraph {
  const char* online;     ///< the wording for a remote model, and for both when `shared`
  const char* local;      ///< the local model's own wording; null: the shared one, or nothing there
  bool shared;
};
const std::vector<Paragraph>& paragraphs();

}  // namespace halvo::Layer3PromptText
