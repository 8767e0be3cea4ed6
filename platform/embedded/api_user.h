#pragma once

// The user-interface services that the driver calls.

#include "platform/embedded/api_types.h"

constexpr UINT MB_OK = 0x00000000;
constexpr int IDOK = 1;

// Shows nothing: the machine records the message box (Machine::messageBoxes) and answers OK.
int MessageBoxW(HWND owner, LPCWSTR text, LPCWSTR caption, UINT type);

// The published formatter: at most 1023 characters and a terminator are stored. Conversions d, u
// and x with a width, and s; any other ends the program.
int wsprintfW(LPWSTR target, LPCWSTR format, ...);

// Cut to the room and terminated; the result counts the characters. 0 for a text that is not
// there; when its table of 16 is missing too, `text` is left alone.
int LoadStringW(HINSTANCE instance, UINT id, LPWSTR text, int characters);
int LoadStringA(HINSTANCE instance, UINT id, LPSTR text, int characters);

// ---- Windows. One thread at a time drives them; messages are sent, never queued: WM_PAINT and
// WM_TIMER come when the machine settles (windows.h).
using WNDPROC = LRESULT(CALLBACK*)(HWND, UINT, WPARAM, LPARAM);
using DLGPROC = INT_PTR(CALLBACK*)(HWND, UINT, WPARAM, LPARAM);
using WNDENUMPROC = BOOL(CALLBACK*)(HWND, LPARAM);
using TIMERPROC = void(CALLBACK*)(HWND, UINT, UINT_PTR, DWORD);

constexpr DWORD ERROR_INVALID_WINDOW_HANDLE = 1400;
constexpr DWORD ERROR_CANNOT_FIND_WND_CLASS = 1407;
constexpr DWORD ERROR_CLASS_ALREADY_EXISTS = 1410;
constexpr DWORD ERROR_CLASS_DOES_NOT_EXIST = 1411;
constexpr DWORD ERROR_INVALID_INDEX = 1413;
constexpr DWORD ERROR_CONTROL_ID_NOT_FOUND = 1421;
constexpr DWORD ERROR_RESOURCE_NAME_NOT_FOUND = 1814;

constexpr UINT CS_VREDRAW = 0x0001;
constexpr UINT CS_HREDRAW = 0x0002;
constexpr UINT CS_DBLCLKS = 0x0008;
constexpr UINT CS_GLOBALCLASS = 0x4000;

constexpr DWORD WS_OVERLAPPED = 0x00000000;
constexpr DWORD WS_TABSTOP = 0x00010000;
constexpr DWORD WS_GROUP = 0x00020000;
constexpr DWORD WS_DISABLED = 0x08000000;
constexpr DWORD WS_VISIBLE = 0x10000000;
constexpr DWORD WS_CHILD = 0x40000000;
constexpr DWORD WS_POPUP = 0x80000000;

constexpr int COLOR_WINDOW = 5;
constexpr int COLOR_WINDOWFRAME = 6;
constexpr int COLOR_BTNFACE = 15;
constexpr int COLOR_BTNSHADOW = 16;
constexpr int COLOR_BTNTEXT = 18;

struct WNDCLASSW {
    UINT style;
    WNDPROC lpfnWndProc;
    int cbClsExtra;
    int cbWndExtra;
    HINSTANCE hInstance;
    HICON hIcon;
    HCURSOR hCursor;
    HBRUSH hbrBackground;
    LPCWSTR lpszMenuName;
    LPCWSTR lpszClassName;
};
static_assert(sizeof(WNDCLASSW) == 72);

struct CREATESTRUCTW {
    LPVOID lpCreateParams;
    HINSTANCE hInstance;
    HMENU hMenu;
    HWND hwndParent;
    int cy;
    int cx;
    int y;
    int x;
    LONG style;
    LPCWSTR lpszName;
    LPCWSTR lpszClass;
    DWORD dwExStyle;
};
static_assert(sizeof(CREATESTRUCTW) == 80);

inline const LPCWSTR IDC_ARROW = MAKEINTRESOURCEW(32512);
// The standard arrow, which is not counted.
HCURSOR LoadCursorW(HINSTANCE instance, LPCWSTR name);
ATOM RegisterClassW(const WNDCLASSW* windowClass);
// Its windows live on, where Windows refuses to unregister a class that has some.
BOOL UnregisterClassW(LPCWSTR name, HINSTANCE instance);

// Class names, not atoms; no extended style. `menu` is a child window's identifier. A new window
// hears WM_NCCREATE, WM_CREATE and, when it is visible, WM_SHOWWINDOW; none is told of its size
// or place.
HWND CreateWindowExW(DWORD exStyle, LPCWSTR className, LPCWSTR text, DWORD style, int x, int y,
                     int width, int height, HWND parent, HMENU menu, HINSTANCE instance,
                     LPVOID parameter);
// With its children; windows that it owns stay.
BOOL DestroyWindow(HWND window);
BOOL IsWindow(HWND window);
LRESULT DefWindowProcW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
// 0 for a window that is not there.
LRESULT SendMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

constexpr int GWLP_HWNDPARENT = -8;
constexpr int GWL_ID = -12;
constexpr int GWL_STYLE = -16;
constexpr int DWLP_MSGRESULT = 0;
constexpr int DWLP_DLGPROC = 8;
constexpr int DWLP_USER = 16;
// The numbers above and, by offsets that are multiples of 8, the extra bytes. The style and the
// extra bytes can be set.
LONG GetWindowLongW(HWND window, int index);
LONG SetWindowLongW(HWND window, int index, LONG value);
LONG_PTR GetWindowLongPtrW(HWND window, int index);
LONG_PTR SetWindowLongPtrW(HWND window, int index, LONG_PTR value);
int GetClassNameW(HWND window, LPWSTR name, int characters);
BOOL SetWindowTextW(HWND window, LPCWSTR text);

// A popup's owner or a child's parent.
HWND GetParent(HWND window);
// Children and theirs, in creation order; those of the moment of the call.
BOOL EnumChildWindows(HWND parent, WNDENUMPROC callback, LPARAM parameter);

// As large as the window: none has a frame.
BOOL GetClientRect(HWND window, RECT* rect);
BOOL GetWindowRect(HWND window, RECT* rect);
// Null for the screen. How far the points moved, in two words. No window is mirrored here, where
// two points would be a rectangle whose sides change places.
int MapWindowPoints(HWND from, HWND to, POINT* points, UINT count);
BOOL MoveWindow(HWND window, int x, int y, int width, int height, BOOL repaint);
BOOL PtInRect(const RECT* rect, POINT point);

constexpr int SW_HIDE = 0;
constexpr int SW_SHOW = 5;
// Whether the window was visible.
BOOL ShowWindow(HWND window, int command);
BOOL IsWindowVisible(HWND window);
// Whether the window was disabled.
BOOL EnableWindow(HWND window, BOOL enable);
BOOL IsWindowEnabled(HWND window);
HWND GetActiveWindow();
// The window that had the focus. Neither is told, and nothing looks different.
HWND SetFocus(HWND window);
// The window that had the mouse, which is not told.
HWND SetCapture(HWND window);
BOOL ReleaseCapture();

// Sends WM_TIMER; `callback` must be null. The clock is the machine's.
UINT_PTR SetTimer(HWND window, UINT_PTR id, UINT milliseconds, TIMERPROC callback);
BOOL KillTimer(HWND window, UINT_PTR id);

struct PAINTSTRUCT {
    HDC hdc;
    BOOL fErase;
    RECT rcPaint;
    BOOL fRestore;
    BOOL fIncUpdate;
    BYTE rgbReserved[32];
};
static_assert(sizeof(PAINTSTRUCT) == 72);
// The smallest rectangle around all that is invalid is painted.
HDC BeginPaint(HWND window, PAINTSTRUCT* paint);
BOOL EndPaint(HWND window, const PAINTSTRUCT* paint);
BOOL InvalidateRect(HWND window, const RECT* rect, BOOL erase);
BOOL UpdateWindow(HWND window);
COLORREF GetSysColor(int index);

// ---- Messages ----
constexpr UINT WM_CREATE = 0x0001;
constexpr UINT WM_DESTROY = 0x0002;
constexpr UINT WM_ENABLE = 0x000A;
constexpr UINT WM_SETREDRAW = 0x000B;
constexpr UINT WM_SETTEXT = 0x000C;
constexpr UINT WM_PAINT = 0x000F;
constexpr UINT WM_ERASEBKGND = 0x0014;
constexpr UINT WM_SHOWWINDOW = 0x0018;
constexpr UINT WM_CANCELMODE = 0x001F;
constexpr UINT WM_DRAWITEM = 0x002B;
constexpr UINT WM_SETFONT = 0x0030;
constexpr UINT WM_NOTIFY = 0x004E;
constexpr UINT WM_HELP = 0x0053;
constexpr UINT WM_CONTEXTMENU = 0x007B;
constexpr UINT WM_NCCREATE = 0x0081;
constexpr UINT WM_NCDESTROY = 0x0082;
constexpr UINT WM_INITDIALOG = 0x0110;
constexpr UINT WM_COMMAND = 0x0111;
constexpr UINT WM_TIMER = 0x0113;
constexpr UINT WM_HSCROLL = 0x0114;
constexpr UINT WM_VSCROLL = 0x0115;
constexpr UINT WM_CTLCOLORDLG = 0x0136;
constexpr UINT WM_CTLCOLORSTATIC = 0x0138;
constexpr UINT WM_MOUSEMOVE = 0x0200;
constexpr UINT WM_LBUTTONDOWN = 0x0201;
constexpr UINT WM_LBUTTONUP = 0x0202;
constexpr UINT WM_LBUTTONDBLCLK = 0x0203;
constexpr UINT WM_USER = 0x0400;

constexpr int SB_LINEUP = 0;
constexpr int SB_LINEDOWN = 1;
constexpr int SB_THUMBTRACK = 5;

// ---- Dialogs and controls: dialogs of the plain template form, and the classes "Button" (push
// buttons, automatic radio buttons, owner-drawn buttons), "Static" (text) and "ComboBox" (drop-down
// lists, not sorted). Another kind of control is not made, nor the dialog that has it.
constexpr int IDCANCEL = 2;

// Shows the template's dialog and runs it until EndDialog, the machine's scripted user
// (Windows::modalUsers) in front of it. -1 when there is no such template.
INT_PTR DialogBoxParamW(HINSTANCE instance, LPCWSTR name, HWND owner, DLGPROC procedure,
                        LPARAM parameter);
BOOL EndDialog(HWND dialog, INT_PTR result);
HWND GetDlgItem(HWND dialog, int id);
LRESULT SendDlgItemMessageW(HWND dialog, int id, UINT message, WPARAM wParam, LPARAM lParam);
BOOL SetDlgItemTextW(HWND dialog, int id, LPCWSTR text);
BOOL CheckRadioButton(HWND dialog, int first, int last, int checked);
UINT IsDlgButtonChecked(HWND dialog, int id);

constexpr UINT BN_CLICKED = 0;
constexpr UINT BST_UNCHECKED = 0;
constexpr UINT BST_CHECKED = 1;
constexpr UINT BM_GETCHECK = 0x00F0;
constexpr UINT BM_SETCHECK = 0x00F1;
constexpr UINT BM_CLICK = 0x00F5;

constexpr UINT CBN_SELCHANGE = 1;
constexpr int CB_ERR = -1;
constexpr UINT CB_ADDSTRING = 0x0143;
constexpr UINT CB_GETCOUNT = 0x0146;
constexpr UINT CB_GETCURSEL = 0x0147;
constexpr UINT CB_GETLBTEXT = 0x0148;
constexpr UINT CB_GETLBTEXTLEN = 0x0149;
constexpr UINT CB_RESETCONTENT = 0x014B;
constexpr UINT CB_SETCURSEL = 0x014E;
constexpr UINT CB_GETITEMDATA = 0x0150;
constexpr UINT CB_SETITEMDATA = 0x0151;

constexpr UINT ODT_BUTTON = 4;
// The action and the state of the item are 0.
struct DRAWITEMSTRUCT {
    UINT CtlType;
    UINT CtlID;
    UINT itemID;
    UINT itemAction;
    UINT itemState;
    HWND hwndItem;
    HDC hDC;
    RECT rcItem;
    ULONG_PTR itemData;
};
static_assert(sizeof(DRAWITEMSTRUCT) == 64);

struct NMHDR {
    HWND hwndFrom;
    UINT_PTR idFrom;
    UINT code;
};
static_assert(sizeof(NMHDR) == 24);

struct HELPINFO {
    UINT cbSize;
    int iContextType;
    int iCtrlId;
    HANDLE hItemHandle;
    DWORD_PTR dwContextId;
    POINT MousePos;
};
static_assert(sizeof(HELPINFO) == 40);
constexpr UINT HELP_CONTEXTMENU = 10;
constexpr UINT HELP_WM_HELP = 12;
// Shows nothing: the machine records the request (Windows::helpRequests) and answers TRUE.
BOOL WinHelpW(HWND window, LPCWSTR file, UINT command, ULONG_PTR data);

// Commands of HtmlHelpW, which a library exports by its ordinal 15.
constexpr UINT HH_DISPLAY_TOPIC = 0x0000;
constexpr UINT HH_CLOSE_ALL = 0x0012;

// The component library's two calls around the HTML help viewer. The reserved argument is null;
// each successful CoInitialize is outstanding until its CoUninitialize (Leaks).
constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;
HRESULT CoInitialize(LPVOID reserved);
void CoUninitialize();
