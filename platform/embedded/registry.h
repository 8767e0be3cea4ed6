#pragma once

// The registry of the embedded machine: HKEY_LOCAL_MACHINE with HKEY_CLASSES_ROOT in it, and
// HKEY_CURRENT_USER, empty at first. Tests and ksfax look into it through this class; driver code
// calls api_registry.h. Safe to use from any thread.
//
// Paths are key names joined by backslashes, found without regard to letter case; an empty path
// is the root itself.

#include <memory>
#include <mutex>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "platform/embedded/api_registry.h"
#include "platform/embedded/machine.h"
#include "platform/embedded/stored_values.h"

namespace embedded {

class Registry {
  public:
    Registry();
    ~Registry();

    bool HasKey(HKEY root, std::u16string_view path) const;
    // Empty for a key that is not there.
    std::u16string ClassOf(HKEY root, std::u16string_view path) const;
    std::vector<std::u16string> Subkeys(HKEY root, std::u16string_view path) const;
    StoredValues Values(HKEY root, std::u16string_view path) const;
    // Both make the keys that are missing on the way.
    void CreateKey(HKEY root, std::u16string_view path);
    void SetValue(HKEY root, std::u16string_view path, std::u16string_view name, StoredValue value);

    // Load replaces everything, or throws std::runtime_error or a nlohmann::json exception and
    // changes nothing. Handles that are open keep the keys they were opened on.
    nlohmann::json Save() const;
    void Load(const nlohmann::json& saved);

    // For the machine's own calls.
    struct Key;
    struct Handle;

  private:
    friend struct RegistryUse;

    std::shared_ptr<Key> Root(HKEY root) const;

    mutable std::mutex mutex_;  // guards the keys
    std::shared_ptr<Key> localMachine_;
    std::shared_ptr<Key> currentUser_;
};

}  // namespace embedded
