// Any bytes as a description cache file of the right size: refused, or safe to ask everything. Of a
// block that is accepted, each reference is then bent in turn, which random bytes rarely do, and
// the same is asked of what that makes.

#include <cstring>

#include "platform/embedded/machine.h"
#include "platform/owned.h"

#include "description/load_description.h"
#include "fuzz/lookups.h"

namespace {

using ksfax::PrinterDescription;

// Whether the packed block is accepted; what it leads to is then inside.
bool Check(const void* packed, size_t size, bool askAll) {
    const platform::GlobalBlock copy(GlobalAlloc(GMEM_FIXED, size));
    std::memcpy(copy.get(), packed, size);
    auto* description = static_cast<PrinterDescription*>(copy.get());
    if (!ksfax::IsSoundBlock(description, size)) {
        return false;
    }
    ksfax::RelocateDescription(description);
    fuzz::InsideWalk(*description).Follow(*description);
    if (askAll) {
        fuzz::AskEverything(*description);
    }
    return true;
}

// Every eight bytes that may be an offset, put to the end of the block, just before it, on
// themselves and a byte too far.
void BendReferences(uint8_t* block, size_t size) {
    for (size_t place = 0; place + sizeof(uint64_t) <= size; place += 4) {
        uint64_t offset = 0;
        std::memcpy(&offset, block + place, sizeof(offset));
        if (offset < sizeof(PrinterDescription) || offset >= size) {
            continue;
        }
        for (const uint64_t bent :
             {uint64_t{size}, uint64_t{size - 4}, uint64_t{place}, offset + 1}) {
            std::memcpy(block + place, &bent, sizeof(bent));
            Check(block, size, false);
        }
        std::memcpy(block + place, &offset, sizeof(offset));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static embedded::Machine machine;
    constexpr size_t kLargestBent = 8192;
    if (size < sizeof(PrinterDescription)) {
        return 0;
    }
    const platform::GlobalBlock block(GlobalAlloc(GMEM_FIXED, size));
    std::memcpy(block.get(), data, size);
    static_cast<PrinterDescription*>(block.get())->TotalSize = static_cast<uint32_t>(size);
    if (Check(block.get(), size, true) && size <= kLargestBent) {
        BendReferences(static_cast<uint8_t*>(block.get()), size);
    }
    return 0;
}
