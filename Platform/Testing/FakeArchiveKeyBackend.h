#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Secrets/ArchiveKeyBackend.h"

namespace halvo {

/// A store of secrets that a test drives by hand: set what an account's `find` answers; what is added is found from then on.
class FakeArchiveKeyBackend : public ArchiveKeyBackend {
 public:
  std::map<std::string, Finding, std::less<>> byAccount;
  std::optional<Addition> failure;      ///< what `add` answers instead of adding
  std::function<void()> beforeAdd;      ///< another process's turn
  std::vector<std::string> lookedUp;    ///< the accounts asked for, in order
  std::vector<NewItem> added;

  Finding find(const Item& item) override {
    lookedUp.push_back(item.account);
    const auto found = byAccount.find(item.account);
    return found == byAccount.end() ? Finding(Absent{}) : found->second;
  }
  Addition add(const NewItem& item) override {
    if (beforeAdd) std::exchange(beforeAdd, nullptr)();
    if (failure) return *failure;
    if (!byAccount.emplace(item.item.account, item.secret).second) return Duplicate{};
    added.push_back(item);
    return Added{};
  }
};

}  // namespace halvo
