#include "platform/windows_api.h"

#include "core/module_state.h"
#include "ui/help.h"
#include "ui/panel_control.h"
#include "ui/spin_control.h"

// The loader's lock is held here, so nothing may wait for another thread. Threads come and go
// unnoticed: the module keeps nothing for each of them.
extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    switch (reason) {
    case DLL_PROCESS_ATTACH:
        ksfax::AttachModuleState(instance);
        ksfax::ResetHelp();
        ksfax::RegisterSpinClass(instance);
        ksfax::RegisterPanelClass(instance);
        break;
    case DLL_PROCESS_DETACH:
        ksfax::UnregisterSpinClass(instance);
        ksfax::UnregisterPanelClass(instance);
        ksfax::DetachModuleState();
        break;
    default:
        break;
    }
    return TRUE;
}
