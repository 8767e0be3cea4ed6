#pragma once

// The fonts built into the device, as *Font statements and the module's font resources name them.

#include <cstdint>
#include <string_view>

namespace ksfax {

constexpr unsigned kDeviceFonts = 80;

// The number, 1 to kDeviceFonts, of the built-in font of that exact name; 0 for any other.
uint16_t DeviceFontId(std::string_view name);

}  // namespace ksfax
