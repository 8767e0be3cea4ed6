#include "platform/windows_api.h"

extern "C" int WINAPI DrvDocumentEvent(HANDLE, HDC, int, ULONG, PVOID, ULONG, PVOID) {
    return DOCUMENTEVENT_SUCCESS;
}
