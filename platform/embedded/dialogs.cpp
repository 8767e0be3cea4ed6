// Dialogs of the embedded machine: windows made from templates, and the calls around them.

#include <algorithm>
#include <cstring>
#include <optional>
#include <span>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/resources.h"
#include "platform/embedded/window.h"

namespace embedded {

namespace {

constexpr int kPixelsPerInch = 96;
constexpr int kPointsPerInch = 72;

struct ControlTemplate {
    DWORD style = 0;
    DWORD exStyle = 0;
    int x = 0, y = 0, width = 0, height = 0;  // dialog units
    int id = 0;
    std::u16string className;
    std::u16string text;
};

struct DialogTemplate {
    DWORD style = 0;
    DWORD exStyle = 0;
    int x = 0, y = 0, width = 0, height = 0;  // dialog units
    std::u16string caption;
    int points = 0;  // 0: no font named
    std::vector<ControlTemplate> controls;
};

// Reads a template front to back. Past the end it gives zeros and remembers that it did.
class TemplateReader {
  public:
    explicit TemplateReader(std::span<const std::byte> bytes) : bytes_(bytes) {}

    bool isIntact() const { return isIntact_; }

    template <typename Number>
    Number Take() {
        Number number{};
        if (bytes_.size() - at_ < sizeof number) {
            isIntact_ = false;
            at_ = bytes_.size();
            return number;
        }
        std::memcpy(&number, bytes_.data() + at_, sizeof number);
        at_ += sizeof number;
        return number;
    }
    // A text with its terminator, or 0xFFFF and a number, which gives an empty text.
    std::u16string TakeText(WORD* number = nullptr) {
        std::u16string text;
        for (auto unit = Take<WORD>(); unit != 0 && isIntact_; unit = Take<WORD>()) {
            if (unit == 0xFFFF && text.empty()) {
                const auto value = Take<WORD>();
                if (number != nullptr) {
                    *number = value;
                }
                return text;
            }
            text += static_cast<char16_t>(unit);
        }
        return text;
    }
    void Skip(size_t bytes) {
        if (bytes_.size() - at_ < bytes) {
            isIntact_ = false;
            bytes = bytes_.size() - at_;
        }
        at_ += bytes;
    }
    void Align() { Skip(std::min((4 - at_ % 4) % 4, bytes_.size() - at_)); }

  private:
    std::span<const std::byte> bytes_;
    size_t at_ = 0;
    bool isIntact_ = true;
};

std::u16string ClassByNumber(WORD number) {
    switch (number) {
        case 0x80:
            return u"Button";
        case 0x82:
            return u"Static";
        case 0x85:
            return u"ComboBox";
        default:
            return {};
    }
}

template <typename Item>
void TakePlace(TemplateReader& reader, Item& item) {
    item.x = reader.Take<SHORT>();
    item.y = reader.Take<SHORT>();
    item.width = reader.Take<SHORT>();
    item.height = reader.Take<SHORT>();
}

ControlTemplate ReadControl(TemplateReader& reader, bool isExtended) {
    reader.Align();
    ControlTemplate control;
    if (isExtended) {
        reader.Take<DWORD>();  // the help context
        control.exStyle = reader.Take<DWORD>();
        control.style = reader.Take<DWORD>();
        TakePlace(reader, control);
        control.id = reader.Take<int32_t>();
    } else {
        control.style = reader.Take<DWORD>();
        control.exStyle = reader.Take<DWORD>();
        TakePlace(reader, control);
        control.id = reader.Take<SHORT>();
    }
    WORD classNumber = 0;
    control.className = reader.TakeText(&classNumber);
    if (classNumber != 0) {
        control.className = ClassByNumber(classNumber);
    }
    control.text = reader.TakeText();
    reader.Skip(reader.Take<WORD>());  // creation data
    return control;
}

// Both published forms. Empty for a template that is not there or damaged.
std::optional<DialogTemplate> ReadTemplate(HINSTANCE instance, WORD number) {
    const auto bytes = Machine::Current().resources().Find(instance, kDialogResource, number);
    if (bytes.empty()) {
        return std::nullopt;
    }
    TemplateReader reader(bytes);
    DialogTemplate dialog;
    const auto first = reader.Take<DWORD>();
    const bool isExtended = first == 0xFFFF0001;
    if (isExtended) {
        reader.Take<DWORD>();  // the help context
        dialog.exStyle = reader.Take<DWORD>();
        dialog.style = reader.Take<DWORD>();
    } else {
        dialog.style = first;
        dialog.exStyle = reader.Take<DWORD>();
    }
    const auto count = reader.Take<WORD>();
    TakePlace(reader, dialog);
    reader.TakeText();  // the menu
    reader.TakeText();  // the class
    dialog.caption = reader.TakeText();
    if ((dialog.style & DS_SETFONT) != 0) {
        dialog.points = reader.Take<WORD>();
        if (isExtended) {
            reader.Take<DWORD>();  // weight, slope, character set
        }
        reader.TakeText();  // the face
    }
    for (WORD at = 0; at < count && reader.isIntact(); ++at) {
        dialog.controls.push_back(ReadControl(reader, isExtended));
    }
    return reader.isIntact() ? std::optional(std::move(dialog)) : std::nullopt;
}

int Scale(int value, int by, int over) {
    const int product = value * by;
    return (product + (product < 0 ? -over : over) / 2) / over;
}

HFONT FontFor(const DialogTemplate& dialog) {
    return dialog.points > 0
               ? Machine::Current().graphics().MakeFont(
                     Scale(dialog.points, kPixelsPerInch, kPointsPerInch))
               : nullptr;
}

// Dialog units in pixels: a quarter of the font's average width, an eighth of its height.
struct DialogUnits {
    explicit DialogUnits(HFONT font) {
        if (font == nullptr) {
            font = static_cast<HFONT>(GetStockObject(DEFAULT_GUI_FONT));
        }
        width = FontAverageWidth(font);
        height = FontHeight(font);
    }
    int X(int units) const { return Scale(units, width, 4); }
    int Y(int units) const { return Scale(units, height, 8); }

    int width;
    int height;
};

DWORD StyleOf(const DialogTemplate& dialog, bool asPage) {
    constexpr DWORD kNotOfPages =
        WS_POPUP | WS_CAPTION | WS_SYSMENU | DS_MODALFRAME | WS_DISABLED;
    return asPage ? (dialog.style & ~(kNotOfPages | WS_VISIBLE)) | WS_CHILD | DS_CONTROL
                  : dialog.style & ~WS_VISIBLE;
}

// Messages whose answer is the procedure's own result instead of DWLP_MSGRESULT.
bool AnswersItself(UINT message) {
    return message == WM_INITDIALOG || (message >= 0x0132 && message <= 0x0138);
}

LRESULT DialogProcedure(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    const auto window = FindWindowOf(handle);
    const auto procedure =
        reinterpret_cast<DLGPROC>(GetWindowLongPtrW(handle, DWLP_DLGPROC));
    const bool isForIt = message != WM_NCCREATE && message != WM_CREATE;
    INT_PTR answer = 0;
    if (procedure != nullptr && isForIt) {
        SetWindowLongPtrW(handle, DWLP_MSGRESULT, 0);
        answer = procedure(handle, message, wParam, lParam);
    }
    if (message == WM_NCDESTROY && window->dialog) {
        DeleteObject(window->dialog->font);
        window->dialog->font = nullptr;
    }
    if (answer != 0) {
        return AnswersItself(message) ? answer : GetWindowLongPtrW(handle, DWLP_MSGRESULT);
    }
    if (message == WM_ERASEBKGND) {
        const auto context = reinterpret_cast<HDC>(wParam);
        RECT client;
        GetClientRect(handle, &client);
        FillRect(context, &client,
                 reinterpret_cast<HBRUSH>(SendMessageW(handle, WM_CTLCOLORDLG, wParam,
                                                       reinterpret_cast<LPARAM>(handle))));
        return 1;
    }
    return DefWindowProcW(handle, message, wParam, lParam);
}

}  // namespace

SystemClass DialogClass() {
    return {kDialogClass, DialogProcedure, 48};
}

HWND MakeDialog(HINSTANCE instance, WORD number, HWND parent, DLGPROC procedure,
                LPARAM parameter, bool asPage) {
    const auto dialog = ReadTemplate(instance, number);
    if (!dialog) {
        SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
        return nullptr;
    }
    const HFONT font = FontFor(*dialog);
    const DialogUnits units(font);
    const DWORD style = StyleOf(*dialog, asPage);
    const Margins frame = FrameOf(style, dialog->exStyle);
    POINT at{units.X(dialog->x), units.Y(dialog->y)};
    if ((style & WS_CHILD) == 0 && parent != nullptr) {
        ClientToScreen(parent, &at);
    }
    const HWND handle = CreateWindowExW(
        dialog->exStyle, kDialogClass, dialog->caption.c_str(), style, at.x, at.y,
        units.X(dialog->width) + frame.left + frame.right,
        units.Y(dialog->height) + frame.top + frame.bottom, parent, nullptr, instance, nullptr);
    if (handle == nullptr) {
        DeleteObject(font);
        return nullptr;
    }
    const auto window = FindWindowOf(handle);
    window->font = font;
    window->dialog = std::make_unique<DialogState>();
    window->dialog->font = font;
    HWND first = nullptr;
    for (const ControlTemplate& item : dialog->controls) {
        const HWND control = CreateWindowExW(
            item.exStyle, item.className.c_str(), item.text.c_str(), item.style | WS_CHILD,
            units.X(item.x), units.Y(item.y), units.X(item.width), units.Y(item.height), handle,
            reinterpret_cast<HMENU>(static_cast<LONG_PTR>(item.id)), instance, nullptr);
        if (control == nullptr) {
            DestroyWindow(handle);
            return nullptr;
        }
        SendMessageW(control, WM_SETFONT, reinterpret_cast<WPARAM>(font), FALSE);
        constexpr DWORD kTakesFocus = WS_TABSTOP | WS_VISIBLE;
        if (first == nullptr && (item.style & kTakesFocus) == kTakesFocus) {
            first = control;
        }
    }
    // The procedure hears nothing before WM_INITDIALOG but what windows always get.
    SetWindowLongPtrW(handle, DWLP_DLGPROC, reinterpret_cast<LONG_PTR>(procedure));
    const auto focused = reinterpret_cast<WPARAM>(first);
    if (SendMessageW(handle, WM_INITDIALOG, focused, parameter) != 0) {
        SetFocus(first);
    }
    return IsWindow(handle) ? handle : nullptr;
}

bool ReadTemplateFacts(HINSTANCE instance, WORD number, TemplateFacts& facts) {
    const auto dialog = ReadTemplate(instance, number);
    if (!dialog) {
        return false;
    }
    const HFONT font = FontFor(*dialog);
    const DialogUnits units(font);
    facts = {.caption = dialog->caption,
             .size = {units.X(dialog->width), units.Y(dialog->height)}};
    DeleteObject(font);
    return true;
}

}  // namespace embedded

using namespace embedded;

INT_PTR DialogBoxParamW(HINSTANCE instance, LPCWSTR name, HWND owner, DLGPROC procedure,
                        LPARAM parameter) {
    static CallSite call("DialogBoxParamW");
    if (call.Fails()) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return -1;
    }
    const HWND handle =
        MakeDialog(instance, ResourceNumber(name), owner, procedure, parameter, false);
    if (handle == nullptr) {
        return -1;
    }
    const bool ownerWasEnabled = owner != nullptr && EnableWindow(owner, FALSE) == FALSE;
    Windows& windows = Machine::Current().windows();
    const auto window = FindWindowOf(handle);
    DialogState& state = *window->dialog;
    if (!state.hasEnded) {
        ShowWindow(handle, SW_SHOW);
        windows.Settle();
    }
    if (!state.hasEnded && !windows.modalUsers.empty()) {
        const auto user = std::move(windows.modalUsers.front());
        windows.modalUsers.pop_front();
        user(handle);
    }
    if (!state.hasEnded) {
        SendMessageW(handle, WM_COMMAND, MAKEWPARAM(IDCANCEL, BN_CLICKED), 0);
    }
    const INT_PTR result = state.hasEnded ? state.result : -1;
    // Enabled before the dialog goes, so that its owner and no other window comes to the front.
    if (ownerWasEnabled) {
        EnableWindow(owner, TRUE);
    }
    DestroyWindow(handle);
    return result;
}

BOOL EndDialog(HWND handle, INT_PTR result) {
    static CallSite call("EndDialog");
    const auto window = FindWindowOf(handle);
    if (call.Fails() || !window || !window->dialog) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return FALSE;
    }
    window->dialog->hasEnded = true;
    window->dialog->result = result;
    ShowWindow(handle, SW_HIDE);
    return TRUE;
}

HWND GetDlgItem(HWND dialog, int id) {
    static CallSite call("GetDlgItem");
    const auto window = FindWindowOf(dialog);
    if (call.Fails() || !window) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return nullptr;
    }
    for (const HWND child : window->children) {
        const auto control = FindWindowOf(child);
        if (control && static_cast<int>(control->id) == id) {
            return child;
        }
    }
    SetLastError(ERROR_CONTROL_ID_NOT_FOUND);
    return nullptr;
}

LRESULT SendDlgItemMessageW(HWND dialog, int id, UINT message, WPARAM wParam, LPARAM lParam) {
    const HWND control = GetDlgItem(dialog, id);
    return control != nullptr ? SendMessageW(control, message, wParam, lParam) : 0;
}

BOOL SetDlgItemTextW(HWND dialog, int id, LPCWSTR text) {
    const HWND control = GetDlgItem(dialog, id);
    return control != nullptr && SetWindowTextW(control, text);
}

UINT GetDlgItemTextW(HWND dialog, int id, LPWSTR text, int characters) {
    const HWND control = GetDlgItem(dialog, id);
    if (control == nullptr) {
        if (text != nullptr && characters > 0) {
            text[0] = 0;
        }
        return 0;
    }
    return static_cast<UINT>(GetWindowTextW(control, text, characters));
}

BOOL CheckRadioButton(HWND dialog, int first, int last, int checked) {
    static CallSite call("CheckRadioButton");
    const auto window = FindWindowOf(dialog);
    if (call.Fails() || !window) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return FALSE;
    }
    for (const HWND child : std::vector(window->children)) {
        const auto control = FindWindowOf(child);
        if (control && control->id >= first && control->id <= last) {
            SendMessageW(child, BM_SETCHECK, control->id == checked, 0);
        }
    }
    return TRUE;
}

UINT IsDlgButtonChecked(HWND dialog, int id) {
    return static_cast<UINT>(SendDlgItemMessageW(dialog, id, BM_GETCHECK, 0, 0));
}
