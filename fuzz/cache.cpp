// Any bytes as a description cache file of the right size: refused, or safe to ask everything.

#include <algorithm>
#include <cstring>

#include "platform/embedded/machine.h"
#include "platform/owned.h"

#include "description/load_description.h"
#include "fuzz/lookups.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static embedded::Machine machine;
    if (size < sizeof(ksfax::PrinterDescription)) {
        return 0;
    }
    const platform::GlobalBlock block(GlobalAlloc(GMEM_FIXED, size));
    std::memcpy(block.get(), data, size);
    auto* description = static_cast<ksfax::PrinterDescription*>(block.get());
    description->TotalSize = static_cast<uint32_t>(size);
    if (ksfax::IsSoundBlock(description, size)) {
        ksfax::RelocateDescription(description);
        fuzz::AskEverything(*description);
    }
    return 0;
}
