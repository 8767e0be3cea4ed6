#include "tests/windows/companion.h"

extern "C" __declspec(dllexport) INT_PTR WINAPI MakeBMP(const void* record) {
    companion::Leave(companion::kCoverRecord, record, companion::kRecordBytes);
    return 0;
}
