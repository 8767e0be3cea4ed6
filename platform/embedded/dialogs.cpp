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

// A dialog or a control of one; extended styles are left out.
struct Template {
    DWORD style = 0;
    int x = 0, y = 0, width = 0, height = 0;  // dialog units
    int id = 0;
    std::u16string className;
    std::u16string text;
};

struct DialogTemplate : Template {
    int points = 0;  // 0: no font named
    std::vector<Template> controls;
};

// Reads a template front to back. Past the end it gives zeros and remembers that it did.
class TemplateReader {
  public:
    explicit TemplateReader(std::span<const std::byte> bytes) : bytes_(bytes) {}

    bool isIntact() const { return isIntact_; }

    template <typename Number>
    Number Take() {
        Number number{};
        isIntact_ = isIntact_ && bytes_.size() - at_ >= sizeof number;
        if (isIntact_) {
            std::memcpy(&number, bytes_.data() + at_, sizeof number);
            at_ += sizeof number;
        }
        return number;
    }
    // A text with its terminator, or the name of one of the machine's classes by its number.
    std::u16string TakeText() {
        std::u16string text;
        for (auto unit = Take<WORD>(); unit != 0; unit = Take<WORD>()) {
            if (unit == 0xFFFF && text.empty()) {
                const auto number = Take<WORD>();
                return number == 0x80 ? u"Button" : number == 0x82 ? u"Static" : u"ComboBox";
            }
            text += static_cast<char16_t>(unit);
        }
        return text;
    }
    void TakeHead(Template& item) {
        item.style = Take<DWORD>();
        Take<DWORD>();  // the extended style
    }
    void TakePlace(Template& item) {
        item.x = Take<SHORT>();
        item.y = Take<SHORT>();
        item.width = Take<SHORT>();
        item.height = Take<SHORT>();
    }
    Template TakeControl() {
        at_ = std::min((at_ + 3) / 4 * 4, bytes_.size());
        Template control;
        TakeHead(control);
        TakePlace(control);
        control.id = Take<SHORT>();
        control.className = TakeText();
        control.text = TakeText();
        const size_t creationData = Take<WORD>();
        at_ = std::min(at_ + creationData, bytes_.size());
        return control;
    }

  private:
    std::span<const std::byte> bytes_;
    size_t at_ = 0;
    bool isIntact_ = true;
};

// Empty for a template that is not there, damaged, or of the extended form.
std::optional<DialogTemplate> ReadTemplate(HINSTANCE instance, WORD number) {
    constexpr DWORD kExtended = 0xFFFF0001;
    TemplateReader reader(Machine::Current().resources().Find(instance, kDialogResource, number));
    DialogTemplate dialog;
    reader.TakeHead(dialog);
    const auto count = reader.Take<WORD>();
    reader.TakePlace(dialog);
    reader.TakeText();  // the menu
    reader.TakeText();  // the class
    dialog.text = reader.TakeText();
    if ((dialog.style & DS_SETFONT) != 0) {
        dialog.points = reader.Take<WORD>();
        reader.TakeText();  // the face
    }
    for (WORD at = 0; at < count && reader.isIntact(); ++at) {
        dialog.controls.push_back(reader.TakeControl());
    }
    if (!reader.isIntact() || dialog.style == kExtended) {
        SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
        return std::nullopt;
    }
    return dialog;
}

int Scale(int value, int by, int over) {
    const int product = value * by;
    return (product + (product < 0 ? -over : over) / 2) / over;
}

HFONT FontFor(const DialogTemplate& dialog) {
    return dialog.points > 0 ? Machine::Current().graphics().MakeFont(
                                   Scale(dialog.points, kPixelsPerInch, kPointsPerInch))
                             : nullptr;
}

// Dialog units in pixels: a quarter of the font's average width, an eighth of its height.
struct DialogUnits {
    explicit DialogUnits(HFONT font) {
        font = font != nullptr ? font : static_cast<HFONT>(GetStockObject(DEFAULT_GUI_FONT));
        width = FontAverageWidth(font);
        height = FontHeight(font);
    }

    POINT Pixels(int x, int y) const { return {Scale(x, width, 4), Scale(y, height, 8)}; }

    int width;
    int height;
};

HWND Create(const Template& item, DWORD style, const DialogUnits& units, HWND parent,
            HINSTANCE instance) {
    const POINT at = units.Pixels(item.x, item.y);
    const POINT size = units.Pixels(item.width, item.height);
    return CreateWindowExW(0, item.className.c_str(), item.text.c_str(), style, at.x, at.y, size.x,
                           size.y, parent, reinterpret_cast<HMENU>(static_cast<LONG_PTR>(item.id)),
                           instance, nullptr);
}

}  // namespace

LRESULT DialogProcedure(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    const auto window = FindWindowOf(handle);
    const auto procedure = reinterpret_cast<DLGPROC>(GetWindowLongPtrW(handle, DWLP_DLGPROC));
    INT_PTR answer = 0;
    if (procedure != nullptr) {
        SetWindowLongPtrW(handle, DWLP_MSGRESULT, 0);
        answer = procedure(handle, message, wParam, lParam);
    }
    if (message == WM_NCDESTROY) {
        DeleteObject(window->ownFont);
    }
    if (answer != 0) {
        const bool isTheAnswer =
            message == WM_INITDIALOG || message == WM_CTLCOLORDLG || message == WM_CTLCOLORSTATIC;
        return isTheAnswer ? answer : GetWindowLongPtrW(handle, DWLP_MSGRESULT);
    }
    if (message == WM_ERASEBKGND) {
        const RECT client = window->ClientRect();
        const LRESULT brush =
            SendMessageW(handle, WM_CTLCOLORDLG, wParam, reinterpret_cast<LPARAM>(handle));
        return FillRect(reinterpret_cast<HDC>(wParam), &client, reinterpret_cast<HBRUSH>(brush));
    }
    return DefWindowProcW(handle, message, wParam, lParam);
}

HWND MakeDialog(HINSTANCE instance, WORD number, HWND parent, DLGPROC procedure, LPARAM parameter,
                bool asPage) {
    auto dialog = ReadTemplate(instance, number);
    if (!dialog) {
        return nullptr;
    }
    const HFONT font = FontFor(*dialog);
    const DialogUnits units(font);
    dialog->className = kDialogClass;
    const DWORD style = dialog->style & ~(WS_VISIBLE | (asPage ? WS_POPUP | WS_DISABLED : 0));
    const HWND handle = Create(*dialog, style | (asPage ? WS_CHILD : 0), units, parent, instance);
    if (handle == nullptr) {
        DeleteObject(font);
        return nullptr;
    }
    FindWindowOf(handle)->ownFont = font;
    HWND first = nullptr;
    for (const Template& item : dialog->controls) {
        const HWND control = Create(item, item.style | WS_CHILD, units, handle, instance);
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
    if (SendMessageW(handle, WM_INITDIALOG, reinterpret_cast<WPARAM>(first), parameter) != 0) {
        SetFocus(first);
    }
    return handle;
}

bool ReadTemplateFacts(HINSTANCE instance, WORD number, TemplateFacts& facts) {
    const auto dialog = ReadTemplate(instance, number);
    if (!dialog) {
        return false;
    }
    const HFONT font = FontFor(*dialog);
    const POINT size = DialogUnits(font).Pixels(dialog->width, dialog->height);
    facts = {.caption = dialog->text, .size = {size.x, size.y}};
    DeleteObject(font);
    return true;
}

}  // namespace embedded

using namespace embedded;

INT_PTR DialogBoxParamW(HINSTANCE instance, LPCWSTR name, HWND owner, DLGPROC procedure,
                        LPARAM parameter) {
    const HWND handle = Fails("DialogBoxParamW") ? nullptr
                                                 : MakeDialog(instance, ResourceNumber(name), owner,
                                                              procedure, parameter, false);
    if (handle == nullptr) {
        return -1;
    }
    const bool ownerWasEnabled = owner != nullptr && EnableWindow(owner, FALSE) == FALSE;
    Windows& windows = Machine::Current().windows();
    const auto window = FindWindowOf(handle);
    ShowWindow(handle, SW_SHOW);
    windows.Settle();
    if (!windows.modalUsers.empty()) {
        const auto user = std::move(windows.modalUsers.front());
        windows.modalUsers.pop_front();
        user(handle);
    }
    if (!window->hasEnded) {
        SendMessageW(handle, WM_COMMAND, MAKEWPARAM(IDCANCEL, BN_CLICKED), 0);
    }
    const INT_PTR result = window->hasEnded ? window->result : -1;
    // Enabled before the dialog goes, so that its owner and no other window comes to the front.
    if (ownerWasEnabled) {
        EnableWindow(owner, TRUE);
    }
    DestroyWindow(handle);
    return result;
}

BOOL EndDialog(HWND handle, INT_PTR result) {
    return WithWindow("EndDialog", handle, [&](Window& window) {
        window.hasEnded = true;
        window.result = result;
        ShowWindow(handle, SW_HIDE);
        return TRUE;
    });
}

HWND GetDlgItem(HWND dialog, int id) {
    return WithWindow("GetDlgItem", dialog, [&](Window& window) -> HWND {
        const auto found = std::ranges::find_if(
            window.children, [&](HWND child) { return FindWindowOf(child)->id == id; });
        if (found == window.children.end()) {
            SetLastError(ERROR_CONTROL_ID_NOT_FOUND);
            return nullptr;
        }
        return *found;
    });
}

LRESULT SendDlgItemMessageW(HWND dialog, int id, UINT message, WPARAM wParam, LPARAM lParam) {
    return SendMessageW(GetDlgItem(dialog, id), message, wParam, lParam);
}

BOOL SetDlgItemTextW(HWND dialog, int id, LPCWSTR text) {
    return SetWindowTextW(GetDlgItem(dialog, id), text);
}

BOOL CheckRadioButton(HWND dialog, int first, int last, int checked) {
    return WithWindow("CheckRadioButton", dialog, [&](Window& window) {
        for (const HWND child : window.children) {
            const LONG_PTR id = FindWindowOf(child)->id;
            if (id >= first && id <= last) {
                SendMessageW(child, BM_SETCHECK, id == checked, 0);
            }
        }
        return TRUE;
    });
}

UINT IsDlgButtonChecked(HWND dialog, int id) {
    return static_cast<UINT>(SendDlgItemMessageW(dialog, id, BM_GETCHECK, 0, 0));
}
