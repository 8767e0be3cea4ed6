// Any bytes as a PPD: they load or fail. What loads is a sound block, the same with and without
// an observer, and answers every lookup.

#include <cstring>

#include "platform/crc16.h"
#include "platform/embedded/machine.h"
#include "platform/owned.h"

#include "description/load_description.h"
#include "fuzz/lookups.h"

namespace {

using fuzz::Demand;

ksfax::PrinterDescription* Pack(std::string_view text, const ksfax::ParseObserver* observer) {
    ksfax::ParseState* state = ksfax::ParsePpdText(text, TEXT("C:\\P.PPD"), observer);
    return state != nullptr ? ksfax::PackDescription(state, observer) : nullptr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static embedded::Machine machine;
    // A copy of its own, so that reading past its end is seen.
    const platform::GlobalBlock copy(GlobalAlloc(GMEM_FIXED, size));
    std::memcpy(copy.get(), data, size);
    const std::string_view text(static_cast<const char*>(copy.get()), size);

    const ksfax::ParseObserver observer = {
        .context = nullptr,
        .statement =
            [](void*, const ksfax::StatementReport& report) {
                Demand(report.line != 0 && report.badLine != 0);
                fuzz::touched = fuzz::touched + report.keyword.size() + report.value.size();
            },
        .packed =
            [](void*, const ksfax::PackReport& report) {
                fuzz::touched = fuzz::touched + report.feature.size() + report.option.size();
            },
        .cacheUsed = nullptr};
    const platform::GlobalBlock block(Pack(text, nullptr));
    const platform::GlobalBlock watched(Pack(text, &observer));
    Demand(static_cast<bool>(block) == static_cast<bool>(watched));
    if (!block) {
        return 0;
    }
    auto* description = static_cast<ksfax::PrinterDescription*>(block.get());
    Demand(std::memcmp(block.get(), watched.get(), description->TotalSize) == 0);
    Demand(ksfax::IsSoundBlock(description, description->TotalSize));
    Demand(description->Checksum == platform::crc16::BySlicing(0, data, size));
    ksfax::RelocateDescription(description);
    fuzz::AskEverything(*description);
    return 0;
}
