// What the machine says of its user and of itself, and to its user.

#include <cstring>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/api_registry.h"
#include "platform/embedded/api_user.h"
#include "platform/embedded/machine.h"
#include "platform/embedded/text.h"

using namespace embedded;

namespace {

constexpr char kComputerName[] = "FAXPC";

// Stores a name with its terminator where `*characters` says that there is room; what it then
// says, with the terminator.
BOOL StoreName(std::string_view name, DWORD errorWithoutRoom, LPSTR target, DWORD* characters) {
    const DWORD room = target != nullptr ? *characters : 0;
    *characters = static_cast<DWORD>(name.size() + 1);
    if (room < *characters) {
        return Answer(errorWithoutRoom);
    }
    target[name.copy(target, room)] = 0;
    return TRUE;
}

}  // namespace

int GetLocaleInfoW(LCID locale, LCTYPE type, LPWSTR text, int characters) {
    if (Fails("GetLocaleInfoW") || locale != LOCALE_USER_DEFAULT || type != LOCALE_ICOUNTRY) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const MachineSetup& setup = Machine::Current().setup();
    const std::u16string country =
        setup.countryText.empty() ? Utf16(std::to_string(setup.country)) : setup.countryText;
    const int needed = static_cast<int>(country.size() + 1);
    if (characters != 0 && !Answer(characters < needed ? ERROR_INSUFFICIENT_BUFFER : 0)) {
        return 0;
    }
    if (characters != 0) {
        memcpy(text, country.c_str(), static_cast<size_t>(needed) * sizeof(WCHAR));
    }
    return needed;
}

BOOL GetComputerNameA(LPSTR name, DWORD* characters) {
    if (Fails("GetComputerNameA", ERROR_GEN_FAILURE) ||
        !StoreName(kComputerName, ERROR_BUFFER_OVERFLOW, name, characters)) {
        return FALSE;
    }
    --*characters;
    return TRUE;
}

BOOL GetUserNameA(LPSTR name, DWORD* characters) {
    return !Fails("GetUserNameA", ERROR_ACCESS_DENIED) &&
           StoreName(ToAnsi(Machine::Current().setup().userName), ERROR_INSUFFICIENT_BUFFER, name,
                     characters);
}

int MessageBoxW(HWND, LPCWSTR text, LPCWSTR caption, UINT type) {
    if (Fails("MessageBoxW", ERROR_NOT_ENOUGH_MEMORY) ||
        !Answer(type != MB_OK ? ERROR_INVALID_PARAMETER : ERROR_SUCCESS)) {
        return 0;
    }
    Machine::Current().ShowMessageBox({.caption = caption, .text = text, .type = type});
    return IDOK;
}
