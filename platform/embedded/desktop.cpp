#include "platform/embedded/desktop.h"

#include <algorithm>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/api_user.h"

namespace embedded {
namespace {

constexpr uintptr_t kFirstWindow = 0x10000;

}  // namespace

HWND Desktop::AddWindow(std::u16string className, HWND parent) {
    std::lock_guard lock(mutex_);
    windows_.push_back({std::move(className), parent});
    return reinterpret_cast<HWND>(kFirstWindow + windows_.size() * 2);
}

bool Desktop::Look(HWND window, HWND* parent, std::u16string* className) const {
    std::lock_guard lock(mutex_);
    const auto value = reinterpret_cast<uintptr_t>(window);
    if (value <= kFirstWindow || value % 2 != 0 || (value - kFirstWindow) / 2 > windows_.size()) {
        return false;
    }
    const Window& found = windows_[(value - kFirstWindow) / 2 - 1];
    *parent = found.parent;
    *className = found.className;
    return true;
}

}  // namespace embedded

using embedded::CallSite;
using embedded::Machine;

HWND GetActiveWindow() {
    static CallSite call("GetActiveWindow");
    return call.Fails() ? nullptr : Machine::Current().desktop().active();
}

HWND GetParent(HWND window) {
    static CallSite call("GetParent");
    HWND parent = nullptr;
    std::u16string className;
    if (call.Fails() || !Machine::Current().desktop().Look(window, &parent, &className)) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return nullptr;
    }
    return parent;
}

int GetClassNameW(HWND window, LPWSTR name, int characters) {
    static CallSite call("GetClassNameW");
    HWND parent = nullptr;
    std::u16string className;
    if (call.Fails() || characters <= 0 ||
        !Machine::Current().desktop().Look(window, &parent, &className)) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return 0;
    }
    const size_t length = std::min(className.size(), static_cast<size_t>(characters) - 1);
    std::copy_n(className.begin(), length, name);
    name[length] = 0;
    return static_cast<int>(length);
}
