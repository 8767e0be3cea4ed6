#pragma once

// Sees and closes the message boxes of this process while it lives, so that a call that shows
// one returns. Boxes are recorded in the order in which they came.

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "platform/windows_api.h"

class BoxWatcher {
  public:
    BoxWatcher() : thread_([this] { Watch(); }) {}
    ~BoxWatcher() {
        done_ = true;
        thread_.join();
    }

    // ", box CAPTION: TEXT (N buttons)" of each since the last call.
    std::string Take() {
        std::lock_guard lock(mutex_);
        return std::exchange(seen_, "");
    }

  private:
    void Watch() {
        while (!done_) {
            EnumWindows(Visit, reinterpret_cast<LPARAM>(this));
            Sleep(10);
        }
    }

    static BOOL CALLBACK Visit(HWND window, LPARAM self) {
        reinterpret_cast<BoxWatcher*>(self)->Look(window);
        return TRUE;
    }

    void Look(HWND window) {
        constexpr int kMessageTextControl = 0xFFFF;
        DWORD process = 0;
        GetWindowThreadProcessId(window, &process);
        WCHAR text[256] = {};
        GetClassNameW(window, text, 256);
        // The system's class of dialogs. A box still being made is left for the next round, a
        // box just told to close has gone from the screen by then or is told once more.
        if (process != GetCurrentProcessId() || std::wstring(text) != TEXT("#32770") ||
            !IsWindowVisible(window) || window == closed_) {
            return;
        }
        WCHAR caption[64] = {};
        GetWindowTextW(window, caption, 64);
        GetDlgItemTextW(window, kMessageTextControl, text, 256);
        unsigned buttons = 0;
        EnumChildWindows(window, CountButton, reinterpret_cast<LPARAM>(&buttons));
        const std::wstring line = std::wstring(TEXT(", box ")) + caption + TEXT(": ") + text;
        {
            std::lock_guard lock(mutex_);
            seen_ += std::string(line.begin(), line.end()) + " (" + std::to_string(buttons) +
                     (buttons == 1 ? " button)" : " buttons)");
        }
        closed_ = window;
        PostMessageW(window, WM_COMMAND, IDOK, 0);
    }

    static BOOL CALLBACK CountButton(HWND child, LPARAM count) {
        WCHAR kind[32] = {};
        GetClassNameW(child, kind, 32);
        if (lstrcmpiW(kind, TEXT("Button")) == 0 && IsWindowVisible(child)) {
            ++*reinterpret_cast<unsigned*>(count);
        }
        return TRUE;
    }

    std::mutex mutex_;
    std::string seen_;
    HWND closed_ = nullptr;
    std::atomic<bool> done_ = false;
    std::thread thread_;
};
