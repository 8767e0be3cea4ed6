#include "platform/embedded/registry.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/api_spooler.h"

namespace embedded {

struct Registry::Key {
    std::u16string keyClass;
    StoredValues values;
    std::map<std::u16string, std::shared_ptr<Key>, LessIgnoringCase> subkeys;

    // Null for a path to nothing, or one with an empty or overlong name. `create` makes what is
    // missing.
    static std::shared_ptr<Key> Find(std::shared_ptr<Key> key, std::u16string_view path,
                                     bool create = false) {
        constexpr size_t kNameMost = 255;
        while (key != nullptr && !path.empty()) {
            const std::u16string_view name = path.substr(0, path.find(u'\\'));
            path.remove_prefix(std::min(name.size() + 1, path.size()));
            if (name.empty() || name.size() > kNameMost) {
                return nullptr;
            }
            auto next = key->subkeys.find(name);
            if (next == key->subkeys.end() && create) {
                next = key->subkeys.emplace(name, std::make_shared<Key>()).first;
            }
            key = next != key->subkeys.end() ? next->second : nullptr;
        }
        return key;
    }

    nlohmann::json Save() const {
        auto keys = nlohmann::json::object();
        for (const auto& [name, key] : subkeys) {
            keys[Utf8(name)] = key->Save();
        }
        return {{"class", Utf8(keyClass)}, {"values", SavedValues(values)}, {"keys", keys}};
    }

    static std::shared_ptr<Key> Load(const nlohmann::json& saved) {
        auto key = std::make_shared<Key>();
        key->keyClass = LoadText(saved, "class");
        key->values = LoadValues(saved.at("values"));
        for (const auto& [name, subkey] :
             saved.at("keys").get_ref<const nlohmann::json::object_t&>()) {
            key->subkeys[Utf16(name)] = Load(subkey);
        }
        return key;
    }
};

struct Registry::Handle : Object {
    std::shared_ptr<Key> key;
    REGSAM access = 0;
};

Registry::Registry()
    : localMachine_(std::make_shared<Key>()), currentUser_(std::make_shared<Key>()) {
}

Registry::~Registry() = default;

std::shared_ptr<Registry::Key> Registry::Root(HKEY root) const {
    if (root == HKEY_CLASSES_ROOT) {
        const auto classes = Key::Find(localMachine_, u"Software\\Classes");
        return classes != nullptr ? classes : std::make_shared<Key>();
    }
    return root == HKEY_LOCAL_MACHINE  ? localMachine_
           : root == HKEY_CURRENT_USER ? currentUser_
                                       : nullptr;
}

bool Registry::HasKey(HKEY root, std::u16string_view path) const {
    std::lock_guard lock(mutex_);
    return Key::Find(Root(root), path) != nullptr;
}

std::u16string Registry::ClassOf(HKEY root, std::u16string_view path) const {
    std::lock_guard lock(mutex_);
    const auto key = Key::Find(Root(root), path);
    return key != nullptr ? key->keyClass : std::u16string();
}

std::vector<std::u16string> Registry::Subkeys(HKEY root, std::u16string_view path) const {
    std::lock_guard lock(mutex_);
    std::vector<std::u16string> names;
    if (const auto key = Key::Find(Root(root), path)) {
        for (const auto& [name, subkey] : key->subkeys) {
            names.push_back(name);
        }
    }
    return names;
}

StoredValues Registry::Values(HKEY root, std::u16string_view path) const {
    std::lock_guard lock(mutex_);
    const auto key = Key::Find(Root(root), path);
    return key != nullptr ? key->values : StoredValues();
}

void Registry::CreateKey(HKEY root, std::u16string_view path) {
    std::lock_guard lock(mutex_);
    Key::Find(Root(root), path, true);
}

void Registry::SetValue(HKEY root, std::u16string_view path, std::u16string_view name,
                        StoredValue value) {
    std::lock_guard lock(mutex_);
    Key::Find(Root(root), path, true)
        ->values.insert_or_assign(std::u16string(name), std::move(value));
}

nlohmann::json Registry::Save() const {
    std::lock_guard lock(mutex_);
    return {{"HKEY_LOCAL_MACHINE", localMachine_->Save()},
            {"HKEY_CURRENT_USER", currentUser_->Save()}};
}

void Registry::Load(const nlohmann::json& saved) {
    auto localMachine = Key::Load(saved.at("HKEY_LOCAL_MACHINE"));
    auto currentUser = Key::Load(saved.at("HKEY_CURRENT_USER"));
    std::lock_guard lock(mutex_);
    localMachine_ = std::move(localMachine);
    currentUser_ = std::move(currentUser);
}

// An open key in use by a published call, with the registry held still.
struct RegistryUse {
    explicit RegistryUse(HKEY handle)
        : registry(Machine::Current().registry()), lock(registry.mutex_),
          key(registry.Root(handle)) {
        if (const auto object = Machine::Current().handles.Get<Registry::Handle>(handle)) {
            key = object->key;
            access = object->access;
        }
    }
    // Whether the handle is open with that right, as an error code.
    LSTATUS Check(REGSAM right = 0) const {
        return key == nullptr              ? LSTATUS{ERROR_INVALID_HANDLE}
               : (access & right) != right ? LSTATUS{ERROR_ACCESS_DENIED}
                                           : LSTATUS{ERROR_SUCCESS};
    }
    LSTATUS Open(std::u16string_view path, REGSAM wanted, bool create, HKEY* opened) const {
        auto handle = std::make_shared<Registry::Handle>();
        handle->key = key != nullptr ? Registry::Key::Find(key, path, create) : nullptr;
        handle->access = wanted;
        if (handle->key == nullptr) {
            return key == nullptr ? ERROR_INVALID_HANDLE
                   : create       ? ERROR_BAD_PATHNAME
                                  : ERROR_FILE_NOT_FOUND;
        }
        *opened = static_cast<HKEY>(Machine::Current().handles.Insert(std::move(handle)));
        return ERROR_SUCCESS;
    }

    Registry& registry;
    std::lock_guard<std::mutex> lock;
    std::shared_ptr<Registry::Key> key;  // null for a handle that names none
    REGSAM access = KEY_ALL_ACCESS;
};

}  // namespace embedded

using namespace embedded;

LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR subkey, DWORD options, REGSAM access, HKEY* opened) {
    return Fails("RegOpenKeyExW") ? ERROR_ACCESS_DENIED
           : options != 0         ? ERROR_INVALID_PARAMETER
                                  : RegistryUse(key).Open(subkey, access, false, opened);
}

LSTATUS RegOpenKeyExA(HKEY key, LPCSTR subkey, DWORD options, REGSAM access, HKEY* opened) {
    return Fails("RegOpenKeyExA") ? ERROR_ACCESS_DENIED
           : options != 0         ? ERROR_INVALID_PARAMETER
                                  : RegistryUse(key).Open(FromAnsi(subkey), access, false, opened);
}

LSTATUS RegCreateKeyExW(HKEY key, LPCWSTR subkey, DWORD reserved, LPWSTR keyClass, DWORD options,
                        REGSAM access, const SECURITY_ATTRIBUTES* security, HKEY* opened,
                        DWORD* disposition) {
    if (Fails("RegCreateKeyExW")) {
        return ERROR_ACCESS_DENIED;
    }
    if (reserved != 0 || options != 0 || security != nullptr || disposition != nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    const RegistryUse use(key);
    const bool isNew = Registry::Key::Find(use.key, subkey) == nullptr;
    const LSTATUS error = use.Open(subkey, access, true, opened);
    if (error == ERROR_SUCCESS && isNew && keyClass != nullptr) {
        Registry::Key::Find(use.key, subkey)->keyClass = keyClass;
    }
    return error;
}

LSTATUS RegDeleteKeyW(HKEY key, LPCWSTR subkey) {
    if (Fails("RegDeleteKeyW")) {
        return ERROR_ACCESS_DENIED;
    }
    const RegistryUse use(key);
    if (const LSTATUS error = use.Check(); error != ERROR_SUCCESS) {
        return error;
    }
    const auto found = use.key->subkeys.find(std::u16string_view(subkey));
    if (found == use.key->subkeys.end()) {
        return ERROR_FILE_NOT_FOUND;
    }
    if (!found->second->subkeys.empty()) {
        return ERROR_ACCESS_DENIED;
    }
    use.key->subkeys.erase(found);
    return ERROR_SUCCESS;
}

LSTATUS RegCloseKey(HKEY key) {
    return Machine::Current().handles.Close<Registry::Handle>(key) ? ERROR_SUCCESS
                                                                   : ERROR_INVALID_HANDLE;
}

LSTATUS RegQueryValueExA(HKEY key, LPCSTR name, DWORD* reserved, DWORD* type, LPBYTE data,
                         DWORD* bytes) {
    if (Fails("RegQueryValueExA")) {
        return ERROR_ACCESS_DENIED;
    }
    if (reserved != nullptr || type != nullptr || data == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    const RegistryUse use(key);
    if (const LSTATUS error = use.Check(KEY_QUERY_VALUE); error != ERROR_SUCCESS) {
        return error;
    }
    const auto found = use.key->values.find(FromAnsi(name != nullptr ? name : ""));
    return found != use.key->values.end() ? CopyOut(ToAnsi(found->second), data, *bytes, bytes)
                                          : DWORD{ERROR_FILE_NOT_FOUND};
}

LSTATUS RegSetValueExA(HKEY key, LPCSTR name, DWORD reserved, DWORD type, const BYTE* data,
                       DWORD bytes) {
    if (Fails("RegSetValueExA")) {
        return ERROR_ACCESS_DENIED;
    }
    if (reserved != 0 || type != REG_BINARY) {
        return ERROR_INVALID_PARAMETER;
    }
    const RegistryUse use(key);
    const LSTATUS error = use.Check(KEY_SET_VALUE);
    if (error == ERROR_SUCCESS) {
        const auto* first = reinterpret_cast<const std::byte*>(data);
        use.key->values.insert_or_assign(FromAnsi(name), StoredValue{type, {first, first + bytes}});
    }
    return error;
}
