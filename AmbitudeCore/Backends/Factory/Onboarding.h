#pragma once

#include <memory>
#include <stdexcept>

#include "AmbitudeCore/Backends/Factory/ModelBackendFactory.h"

/// The backend of first-run setup, which is remote and only remote unless the user chose local.
namespace halvo::ModelBackendFactory::Onboarding {

class Error : public std::runtime_error {
 public:
  enum class Kind { noAPIKey };
  explicit Error(Kind kind) : std::runtime_error("onboarding backend: no OPENROUTER_API_KEY configured"), kind_(kind) {}
  Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

enum class Where {
  remote,    ///< as the configuration has it
  localOnly  ///< the user chose that nothing leaves the machine
};

}  // namespace halvo::ModelBackendFactory::Onboarding

namespace halvo::ModelBackendFactory {

/// Never falls back. Offline mode counts as a choice of local. Throws `Onboarding::Error`.
std::shared_ptr<ModelBackend> forOnboarding(const Parts& parts, Onboarding::Where where);

}  // namespace halvo::ModelBackendFactory
