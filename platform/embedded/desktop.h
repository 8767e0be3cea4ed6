#pragma once

// The windows of the embedded machine: their classes and parents, and which one is active. The
// machine keeps one active window, where Windows keeps one for each thread.

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "platform/embedded/machine.h"

namespace embedded {

class Desktop {
  public:
    // Stands for a window of the calling application.
    HWND AddWindow(std::u16string className, HWND parent = nullptr);
    // Null: no window is active.
    void Activate(HWND window) { active_ = window; }

    HWND active() const { return active_; }
    // False for a handle that is no window; *parent is null for one without a parent.
    bool Look(HWND window, HWND* parent, std::u16string* className) const;

  private:
    struct Window {
        std::u16string className;
        HWND parent;
    };

    mutable std::mutex mutex_;
    std::vector<Window> windows_;
    std::atomic<HWND> active_ = nullptr;
};

}  // namespace embedded
