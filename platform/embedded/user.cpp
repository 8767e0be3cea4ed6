#include "platform/embedded/api_kernel.h"
#include "platform/embedded/api_user.h"
#include "platform/embedded/machine.h"

using namespace embedded;

int MessageBoxW(HWND, LPCWSTR text, LPCWSTR caption, UINT type) {
    static CallSite call("MessageBoxW");
    if (call.Fails()) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
    if (type != MB_OK) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    // Without a caption a message box says what Windows thinks of it.
    Machine::Current().ShowMessageBox({.caption = caption != nullptr ? caption : u"Error",
                                       .text = text != nullptr ? text : u"",
                                       .type = type});
    return IDOK;
}
