// What the machine says of its user's country and of its own name. Both come from MachineSetup.

#include <cstring>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/machine.h"
#include "platform/embedded/text.h"

using namespace embedded;

int GetLocaleInfoW(LCID locale, LCTYPE type, LPWSTR text, int characters) {
    static CallSite call("GetLocaleInfoW");
    if (call.Fails() || locale != LOCALE_USER_DEFAULT || type != LOCALE_ICOUNTRY ||
        characters < 0 || (text == nullptr && characters != 0)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const MachineSetup& setup = Machine::Current().setup();
    const std::u16string country =
        setup.countryText.empty() ? Utf16(std::to_string(setup.country)) : setup.countryText;
    const int needed = static_cast<int>(country.size() + 1);
    if (characters == 0) {
        return needed;
    }
    if (characters < needed) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    memcpy(text, country.c_str(), static_cast<size_t>(needed) * sizeof(WCHAR));
    return needed;
}

BOOL GetComputerNameA(LPSTR name, DWORD* characters) {
    static CallSite call("GetComputerNameA");
    if (call.Fails()) {
        SetLastError(ERROR_GEN_FAILURE);
        return FALSE;
    }
    const std::string computer = ToAnsi(Machine::Current().setup().computerName);
    const auto length = static_cast<DWORD>(computer.size());
    if (name == nullptr || *characters < length + 1) {
        *characters = length + 1;
        SetLastError(ERROR_BUFFER_OVERFLOW);
        return FALSE;
    }
    memcpy(name, computer.c_str(), length + 1);
    *characters = length;
    return TRUE;
}
