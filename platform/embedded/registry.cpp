#include "platform/embedded/registry.h"

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/api_spooler.h"

namespace embedded {

struct Registry::Key {
    std::u16string keyClass;
    StoredValues values;
    std::map<std::u16string, std::shared_ptr<Key>, LessIgnoringCase> subkeys;
    // A handle that is open on a deleted key fails with ERROR_KEY_DELETED.
    bool deleted = false;

    static constexpr size_t kNameMost = 255;

    // ERROR_SUCCESS, ERROR_FILE_NOT_FOUND, or ERROR_BAD_PATHNAME for an empty or overlong name on
    // the way; *found is set in the first case alone. `create` makes what is missing, `keyClass`
    // goes with the last name, and *created tells whether that one was made.
    static LSTATUS Walk(std::shared_ptr<Key> key, std::u16string_view path, bool create,
                        std::u16string_view keyClass, std::shared_ptr<Key>* found, bool* created) {
        *created = false;
        while (!path.empty()) {
            const std::u16string_view name = path.substr(0, path.find(u'\\'));
            path.remove_prefix(std::min(name.size() + 1, path.size()));
            if (name.empty() || name.size() > kNameMost) {
                return ERROR_BAD_PATHNAME;
            }
            auto next = key->subkeys.find(name);
            *created = next == key->subkeys.end();
            if (*created) {
                if (!create) {
                    return ERROR_FILE_NOT_FOUND;
                }
                next = key->subkeys.emplace(name, std::make_shared<Key>()).first;
                next->second->keyClass = path.empty() ? keyClass : std::u16string_view();
            }
            key = next->second;
        }
        *found = std::move(key);
        return ERROR_SUCCESS;
    }

    static std::shared_ptr<Key> Find(std::shared_ptr<Key> key, std::u16string_view path) {
        std::shared_ptr<Key> found;
        bool created;
        Walk(std::move(key), path, false, {}, &found, &created);
        return found;
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

void Registry::CreateKey(HKEY root, std::u16string_view path, std::u16string_view keyClass) {
    std::lock_guard lock(mutex_);
    std::shared_ptr<Key> key;
    bool created;
    Key::Walk(Root(root), path, true, keyClass, &key, &created);
}

void Registry::SetValue(HKEY root, std::u16string_view path, std::u16string_view name,
                        StoredValue value) {
    CreateKey(root, path);
    std::lock_guard lock(mutex_);
    Key::Find(Root(root), path)->values.insert_or_assign(std::u16string(name), std::move(value));
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

// The published calls.
struct RegistryCalls {
    using Key = Registry::Key;

    // An open key in use, with the registry held still. `error` is not ERROR_SUCCESS when `key`
    // must not be touched.
    struct Use {
        explicit Use(HKEY handle)
            : registry(Machine::Current().registry()), lock(registry.mutex_),
              key(registry.Root(handle)) {
            if (key == nullptr) {
                const auto object = Machine::Current().handles.Get<Registry::Handle>(handle);
                if (object == nullptr) {
                    error = ERROR_INVALID_HANDLE;
                    return;
                }
                key = object->key;
                access = object->access;
            }
            error = key->deleted ? ERROR_KEY_DELETED : ERROR_SUCCESS;
        }
        // ERROR_ACCESS_DENIED unless the key was opened with that right.
        LSTATUS Check(REGSAM right) const {
            return error != ERROR_SUCCESS      ? error
                   : (access & right) != right ? LSTATUS{ERROR_ACCESS_DENIED}
                                               : LSTATUS{ERROR_SUCCESS};
        }

        Registry& registry;
        std::lock_guard<std::mutex> lock;
        std::shared_ptr<Key> key;
        REGSAM access = KEY_ALL_ACCESS;
        LSTATUS error;
    };

    static HKEY NewHandle(std::shared_ptr<Key> key, REGSAM access) {
        auto handle = std::make_shared<Registry::Handle>();
        handle->key = std::move(key);
        handle->access = access;
        return static_cast<HKEY>(Machine::Current().handles.Insert(std::move(handle)));
    }

    static LSTATUS Open(HKEY parent, const WCHAR* path, REGSAM access, HKEY* opened) {
        Use use(parent);
        std::shared_ptr<Key> found;
        bool created;
        LSTATUS error = use.error;
        if (error == ERROR_SUCCESS) {
            error = Key::Walk(use.key, path, false, {}, &found, &created);
        }
        if (error == ERROR_SUCCESS) {
            *opened = NewHandle(std::move(found), access);
        }
        return error;
    }

    static LSTATUS Create(HKEY parent, const WCHAR* path, std::u16string_view keyClass,
                          REGSAM access, HKEY* opened, DWORD* disposition) {
        Use use(parent);
        std::shared_ptr<Key> found;
        bool created = false;
        LSTATUS error = use.error;
        if (error == ERROR_SUCCESS) {
            error = Key::Walk(use.key, path, true, keyClass, &found, &created);
        }
        if (error != ERROR_SUCCESS) {
            return error;
        }
        *opened = NewHandle(std::move(found), access);
        if (disposition != nullptr) {
            *disposition = created ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
        }
        return ERROR_SUCCESS;
    }

    static LSTATUS Delete(HKEY parent, std::u16string_view path) {
        Use use(parent);
        if (use.error != ERROR_SUCCESS) {
            return use.error;
        }
        const size_t slash = path.rfind(u'\\');
        const std::u16string_view name = path.substr(slash + 1);  // npos + 1 is 0
        const auto holder =
            Key::Find(use.key, slash == path.npos ? std::u16string_view() : path.substr(0, slash));
        if (holder == nullptr) {
            return ERROR_FILE_NOT_FOUND;
        }
        const auto found = holder->subkeys.find(name);
        if (found == holder->subkeys.end()) {
            return ERROR_FILE_NOT_FOUND;
        }
        if (!found->second->subkeys.empty()) {
            return ERROR_ACCESS_DENIED;
        }
        found->second->deleted = true;
        holder->subkeys.erase(found);
        return ERROR_SUCCESS;
    }

    static LSTATUS Query(HKEY handle, std::u16string_view name, bool ansi, DWORD* type, BYTE* data,
                         DWORD* bytes) {
        Use use(handle);
        if (const LSTATUS error = use.Check(KEY_QUERY_VALUE); error != ERROR_SUCCESS) {
            return error;
        }
        const auto found = use.key->values.find(name);
        if (found == use.key->values.end()) {
            return ERROR_FILE_NOT_FOUND;
        }
        const StoredValue value = ansi ? ToAnsi(found->second) : found->second;
        if (type != nullptr) {
            *type = value.type;
        }
        const DWORD room = bytes != nullptr ? *bytes : 0;
        if (bytes != nullptr) {
            *bytes = static_cast<DWORD>(value.data.size());
        }
        if (data == nullptr) {
            return ERROR_SUCCESS;
        }
        if (room < value.data.size()) {
            return ERROR_MORE_DATA;
        }
        std::ranges::copy(value.data, reinterpret_cast<std::byte*>(data));
        return ERROR_SUCCESS;
    }

    static LSTATUS Set(HKEY handle, std::u16string_view name, StoredValue value) {
        Use use(handle);
        const LSTATUS error = use.Check(KEY_SET_VALUE);
        if (error == ERROR_SUCCESS) {
            use.key->values.insert_or_assign(std::u16string(name), std::move(value));
        }
        return error;
    }

    static LSTATUS Close(HKEY handle) {
        Machine& machine = Machine::Current();
        if (machine.registry().Root(handle) != nullptr) {
            return ERROR_SUCCESS;
        }
        return machine.handles.Close<Registry::Handle>(handle) ? LSTATUS{ERROR_SUCCESS}
                                                               : LSTATUS{ERROR_INVALID_HANDLE};
    }
};

}  // namespace embedded

using namespace embedded;

namespace {

LSTATUS OpenKey(CallSite& call, HKEY key, const std::u16string& subkey, DWORD options,
                REGSAM access, HKEY* opened) {
    if (call.Fails()) {
        return ERROR_ACCESS_DENIED;
    }
    if (options != 0 || opened == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    return RegistryCalls::Open(key, subkey.c_str(), access, opened);
}

}  // namespace

LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR subkey, DWORD options, REGSAM access, HKEY* opened) {
    static CallSite call("RegOpenKeyExW");
    return OpenKey(call, key, subkey != nullptr ? subkey : u"", options, access, opened);
}

LSTATUS RegOpenKeyExA(HKEY key, LPCSTR subkey, DWORD options, REGSAM access, HKEY* opened) {
    static CallSite call("RegOpenKeyExA");
    return OpenKey(call, key, FromAnsi(subkey != nullptr ? subkey : ""), options, access, opened);
}

LSTATUS RegCreateKeyExW(HKEY key, LPCWSTR subkey, DWORD reserved, LPWSTR keyClass, DWORD options,
                        REGSAM access, const SECURITY_ATTRIBUTES* security, HKEY* opened,
                        DWORD* disposition) {
    static CallSite call("RegCreateKeyExW");
    if (call.Fails()) {
        return ERROR_ACCESS_DENIED;
    }
    if (subkey == nullptr || reserved != 0 || options != 0 || security != nullptr ||
        opened == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    return RegistryCalls::Create(key, subkey, keyClass != nullptr ? keyClass : u"", access, opened,
                                 disposition);
}

LSTATUS RegDeleteKeyW(HKEY key, LPCWSTR subkey) {
    static CallSite call("RegDeleteKeyW");
    if (call.Fails()) {
        return ERROR_ACCESS_DENIED;
    }
    if (subkey == nullptr || *subkey == 0) {
        return ERROR_INVALID_PARAMETER;
    }
    return RegistryCalls::Delete(key, subkey);
}

LSTATUS RegCloseKey(HKEY key) {
    return RegistryCalls::Close(key);
}

LSTATUS RegQueryValueExW(HKEY key, LPCWSTR name, DWORD* reserved, DWORD* type, LPBYTE data,
                         DWORD* bytes) {
    static CallSite call("RegQueryValueExW");
    if (call.Fails()) {
        return ERROR_ACCESS_DENIED;
    }
    if (reserved != nullptr || (data != nullptr && bytes == nullptr)) {
        return ERROR_INVALID_PARAMETER;
    }
    return RegistryCalls::Query(key, name != nullptr ? name : u"", false, type, data, bytes);
}

LSTATUS RegQueryValueExA(HKEY key, LPCSTR name, DWORD* reserved, DWORD* type, LPBYTE data,
                         DWORD* bytes) {
    static CallSite call("RegQueryValueExA");
    if (call.Fails()) {
        return ERROR_ACCESS_DENIED;
    }
    if (reserved != nullptr || (data != nullptr && bytes == nullptr)) {
        return ERROR_INVALID_PARAMETER;
    }
    return RegistryCalls::Query(key, FromAnsi(name != nullptr ? name : ""), true, type, data,
                                bytes);
}

LSTATUS RegSetValueExW(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data,
                       DWORD bytes) {
    static CallSite call("RegSetValueExW");
    if (call.Fails()) {
        return ERROR_ACCESS_DENIED;
    }
    if (reserved != 0 || (data == nullptr && bytes != 0)) {
        return ERROR_INVALID_PARAMETER;
    }
    const auto* first = reinterpret_cast<const std::byte*>(data);
    return RegistryCalls::Set(key, name != nullptr ? name : u"", {type, {first, first + bytes}});
}

LSTATUS RegSetValueExA(HKEY key, LPCSTR name, DWORD reserved, DWORD type, const BYTE* data,
                       DWORD bytes) {
    static CallSite call("RegSetValueExA");
    if (call.Fails()) {
        return ERROR_ACCESS_DENIED;
    }
    if (reserved != 0 || (data == nullptr && bytes != 0)) {
        return ERROR_INVALID_PARAMETER;
    }
    const auto* first = reinterpret_cast<const std::byte*>(data);
    return RegistryCalls::Set(key, FromAnsi(name != nullptr ? name : ""),
                              FromAnsi(StoredValue{type, {first, first + bytes}}));
}
