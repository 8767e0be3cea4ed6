#include "tool/loaded_driver.h"

#include <span>
#include <stdexcept>
#include <utility>

#include "platform/embedded/modules.h"
#include "platform/windows_api.h"

extern "C" const std::byte ksfaxui_resources[];
extern "C" const std::byte ksfaxui_resources_end[];

namespace tool {

LoadedDriver::LoadedDriver(embedded::Machine& machine, std::u16string path)
    : machine_(machine), path_(std::move(path)) {
    machine_.modules().Install({.path = path_,
                                .exports = {},
                                .resources = std::span(ksfaxui_resources, ksfaxui_resources_end)});
    instance_ = LoadLibraryW(path_.c_str());
    if (instance_ == nullptr) {
        machine_.modules().Remove(path_);
        throw std::runtime_error("the embedded machine cannot load KSFAXUI.DLL, error " +
                                 std::to_string(GetLastError()));
    }
    DllMain(instance_, DLL_PROCESS_ATTACH, nullptr);
}

LoadedDriver::~LoadedDriver() {
    DllMain(instance_, DLL_PROCESS_DETACH, nullptr);
    FreeLibrary(instance_);
    machine_.modules().Remove(path_);
}

}  // namespace tool
