#include "AmbitudeCore/Backends/ProviderRoutingGeneration.h"

#include <atomic>

namespace halvo::ProviderRoutingGeneration {
namespace {

std::atomic<std::int64_t> generation{0};

}  // namespace

std::int64_t get() { return generation.load(); }
std::int64_t advance() { return ++generation; }

}  // namespace halvo::ProviderRoutingGeneration
