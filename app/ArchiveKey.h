#pragma once

/// The key that recordings are sealed with.
namespace halvo::ArchiveKey {

/// Sees to it that there is one which the programs beside this one may read: at each start of the application, and when Halvo is set up.
/// Failures are told on standard error, and a key that had to be replaced is told as a capture fault. Never throws.
void provision();

}  // namespace halvo::ArchiveKey
