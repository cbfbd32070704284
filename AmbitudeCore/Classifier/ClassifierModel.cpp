#include "AmbitudeCore/Classifier/ClassifierModel.h"

#include "CaptureShared/Foundation/Text.h"

namespace halvo::ClassifierModel {

std::string resolved(const Environment& environment, std::string_view fallback) {
  const auto named = value(environment, "AMBITCHECK_MODEL");
  return std::string(named && !Text::isBlank(*named) ? Text::trim(*named) : fallback);
}

}  // namespace halvo::ClassifierModel
