#pragma once

#include <cstdint>

/// How often this process has chosen a new remote provider: a new one starts new sessions, so that nothing pins them to the old.
namespace halvo::ProviderRoutingGeneration {

/// 0 until the first `advance` of this process.
std::int64_t get();
/// Adds one and answers the new value. Safe from any thread.
std::int64_t advance();

}  // namespace halvo::ProviderRoutingGeneration
