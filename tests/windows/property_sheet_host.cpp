// The common property sheet library as the driver knows it, over the real property sheet: exported
// by the tests' program, to which the test leads the driver. Wine's own has no function 17, with
// which the driver inserts its pages.

#include <algorithm>
#include <vector>

#include "platform/windows_api.h"

namespace {

struct Sheet {
    PFNPROPSHEETUI function;
    PROPSHEETUI_INFO information;
    std::vector<HPROPSHEETPAGE> pages;

    LONG Tell(WORD reason, LPARAM parameter) {
        information.Reason = reason;
        return function(&information, parameter);
    }
};

// A page answers for its sheet by its own handle; one sheet is open at a time.
Sheet* openSheet = nullptr;

LONG_PTR Insert(LPARAM position, const INSERTPSUIPAGE_INFO& insertion) {
    if (insertion.cbSize != sizeof insertion || insertion.Type != PSUIPAGEINSERT_PROPSHEETPAGE ||
        insertion.Mode != INSPSUIPAGE_MODE_INDEX || position < 0 ||
        position > static_cast<LPARAM>(openSheet->pages.size())) {
        return 0;
    }
    const HPROPSHEETPAGE page =
        CreatePropertySheetPageW(reinterpret_cast<const PROPSHEETPAGEW*>(insertion.dwData1));
    if (page != nullptr) {
        openSheet->pages.insert(openSheet->pages.begin() + position, page);
    }
    return reinterpret_cast<LONG_PTR>(page);
}

LONG_PTR SetResult(HANDLE sheet, LPARAM page, LPARAM result) {
    const auto& pages = openSheet->pages;
    if (!std::ranges::count(pages, sheet) ||
        !std::ranges::count(pages, reinterpret_cast<HANDLE>(page))) {
        return 0;
    }
    SETRESULT_INFO set = {sizeof set, 0, reinterpret_cast<HANDLE>(page), result};
    return openSheet->Tell(PROPSHEETUI_REASON_SET_RESULT, reinterpret_cast<LPARAM>(&set));
}

LONG_PTR CALLBACK Answer(HANDLE sheet, UINT function, LPARAM first, LPARAM second) {
    return function == CPSFUNC_INSERT_PSUIPAGEW
               ? Insert(first, *reinterpret_cast<const INSERTPSUIPAGE_INFO*>(second))
           : function == CPSFUNC_SET_RESULT ? SetResult(sheet, first, second)
                                            : 0;
}

}  // namespace

extern "C" __declspec(dllexport) LONG WINAPI
    CommonPropertySheetUIW(HWND owner, PFNPROPSHEETUI function, LPARAM parameter, LPDWORD result) {
    Sheet sheet = {function, {}, {}};
    openSheet = &sheet;
    PROPSHEETUI_INFO& information = sheet.information;
    information.cbSize = sizeof information;
    information.Version = 0x0100;
    information.Flags = PSUIINFO_UNICODE;
    information.hComPropSheet = &sheet;
    information.pfnComPropSheet = Answer;
    information.lParamInit = parameter;
    LONG answer = sheet.Tell(PROPSHEETUI_REASON_INIT, parameter);
    if (answer > 0) {
        PROPSHEETUI_INFO_HEADER facts = {};
        facts.cbSize = sizeof facts;
        sheet.Tell(PROPSHEETUI_REASON_GET_INFO_HEADER, reinterpret_cast<LPARAM>(&facts));
        PROPSHEETHEADERW header = {};
        header.dwSize = sizeof header;
        header.dwFlags = ((facts.Flags & PSUIHDRF_NOAPPLYNOW) != 0 ? PSH_NOAPPLYNOW : 0) |
                         ((facts.Flags & PSUIHDRF_PROPTITLE) != 0 ? PSH_PROPTITLE : 0);
        header.hwndParent = owner;
        header.hInstance = facts.hInst;
        header.pszCaption = facts.pTitle;
        header.nPages = static_cast<UINT>(sheet.pages.size());
        header.phpage = sheet.pages.data();
        if (PropertySheetW(&header) < 0) {
            answer = ERR_CPSUI_GETLASTERROR;
        } else if (result != nullptr) {
            *result = static_cast<DWORD>(information.Result);
        }
        sheet.Tell(PROPSHEETUI_REASON_DESTROY, 0);
    }
    openSheet = nullptr;
    return answer;
}
