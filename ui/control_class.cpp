#include "ui/control_class.h"

namespace ksfax {

void DrawLines(HDC context, const GraphicsObject& pen, std::initializer_list<POINT> points) {
    const Selection selection(context, pen.get());
    if (!selection) {
        return;
    }
    const POINT* point = points.begin();
    MoveToEx(context, point->x, point->y, nullptr);
    while (++point != points.end()) {
        LineTo(context, point->x, point->y);
    }
}

void RepaintNow(HWND window, const RECT* area) {
    InvalidateRect(window, area, TRUE);
    UpdateWindow(window);
}

void RegisterControlClass(LPCWSTR name, WNDPROC procedure, HINSTANCE instance, bool& isRegistered) {
    if (isRegistered) {
        return;
    }
    WNDCLASSW record{};
    record.style = CS_VREDRAW | CS_HREDRAW | CS_DBLCLKS | CS_GLOBALCLASS;
    record.lpfnWndProc = procedure;
    record.cbWndExtra = sizeof(void*);
    record.hInstance = instance;
    record.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    record.hbrBackground = reinterpret_cast<HBRUSH>(static_cast<ULONG_PTR>(COLOR_BTNFACE + 1));
    record.lpszClassName = name;
    isRegistered = RegisterClassW(&record) != 0;
}

void UnregisterControlClass(LPCWSTR name, HINSTANCE instance, bool& isRegistered) {
    if (isRegistered) {
        UnregisterClassW(name, instance);
        isRegistered = false;
    }
}

bool AttachControlState(HWND window, SIZE_T bytes) {
    if (ControlState<void>(window) != nullptr) {
        return true;
    }
    const HLOCAL state = LocalAlloc(LPTR, bytes);
    if (state == nullptr) {
        return false;
    }
    // Its result, the former pointer, is null whether it fails or not.
    SetWindowLongPtrW(window, 0, reinterpret_cast<LONG_PTR>(state));
    if (ControlState<void>(window) == state) {
        return true;
    }
    LocalFree(state);
    return false;
}

void FreeControlState(HWND window) {
    LocalFree(ControlState<void>(window));
    SetWindowLongPtrW(window, 0, 0);
}

namespace {

// The character in the ANSI code page when it is one byte there, else 0. The numbers were read
// from 8-bit text once, where the code page decides what counts as a digit.
char AnsiCharacter(WCHAR character) {
    char bytes[4] = {};
    const int count =
        WideCharToMultiByte(CP_ACP, 0, &character, 1, bytes, sizeof bytes, nullptr, nullptr);
    return count == 1 ? bytes[0] : '\0';
}

enum class FieldEnd { Comma, Text, Bad };

// Reads one field and moves `text` behind it and its comma.
FieldEnd ReadField(LPCWSTR& text, uint16_t& value) {
    value = 0;
    if (*text == 0) {
        return FieldEnd::Bad;
    }
    for (; *text != 0; ++text) {
        const char character = AnsiCharacter(*text);
        if (character == ',') {
            ++text;
            return FieldEnd::Comma;
        }
        if (character < '0' || character > '9') {
            return FieldEnd::Bad;
        }
        value = static_cast<uint16_t>(value * 10 + (character - '0'));
    }
    return FieldEnd::Text;
}

}  // namespace

bool ParseRangeText(LPCWSTR text, RangeText* range) {
    RangeText read{};
    if (text == nullptr || ReadField(text, read.minimum) != FieldEnd::Comma ||
        ReadField(text, read.maximum) != FieldEnd::Comma ||
        ReadField(text, read.position) == FieldEnd::Bad) {
        return false;
    }
    *range = read;
    return true;
}

}  // namespace ksfax
