#pragma once

// The resources of a loaded module, read from the bytes of its .res file. A file that is damaged
// counts as far as it can be read.

#include <cstddef>
#include <mutex>
#include <span>
#include <unordered_map>

#include "platform/embedded/machine.h"

namespace embedded {

// Published resource types.
constexpr WORD kBitmapResource = 2;
constexpr WORD kDialogResource = 5;
constexpr WORD kStringResource = 6;

class Resources {
  public:
    explicit Resources(Machine& machine) : machine_(machine) {}

    // The bytes of one resource of a loaded module, in the first language there is; they live as
    // long as the module is installed. Empty, with a null address, when the module is not loaded or
    // has no such resource. Types and resources that go by a name in place of a number are not
    // found.
    std::span<const std::byte> Find(HINSTANCE module, WORD type, WORD number);
    // One text of the string tables, without terminator; it may lie unaligned. Empty when there
    // is none, with a null address when its whole table is missing.
    std::span<const std::byte> FindString(HINSTANCE module, UINT number);

  private:
    // By type and number, the type in the high half.
    using Index = std::unordered_map<DWORD, std::span<const std::byte>>;
    const Index& IndexOf(HINSTANCE module, std::span<const std::byte> file);

    Machine& machine_;
    std::mutex mutex_;
    // A module's handle is never given to another one.
    std::unordered_map<HINSTANCE, Index> indexes_;
};

}  // namespace embedded
