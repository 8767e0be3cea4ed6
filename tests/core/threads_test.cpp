#include <atomic>
#include <functional>
#include <thread>

#include "platform/embedded/text.h"

#include "core/session.h"
#include "tests/core/fax_machine.h"

namespace ksfax {
namespace {

// Two printers and everything that shares a description or keeps others from it.
TEST(Threads, TakeTurnsAtWhatTheyShare) {
    FaxMachine fax;
    fax.AddPrinter(u"Other", u"C:\\Ppd\\OTHER.PPD", kFaxPpd);
    const embedded::Leaks before = fax.machine.OpenNow();
    std::atomic<unsigned> wrong = 0;
    const auto run = [&](std::u16string name, int times, std::function<bool(HANDLE)> isRight) {
        return std::jthread([=, &fax, &wrong] {
            const platform::PrinterHandle printer = fax.Open(name);
            for (int i = 0; i < times; ++i) {
                wrong += !isRight(printer.get());
            }
        });
    };
    const auto describe = [&](std::u16string name, bool allowShared) {
        return run(name, 60, [=](HANDLE printer) {
            const DescriptionUse description(AcquireDescription(printer, allowShared));
            return description &&
                   embedded::EqualIgnoringCase(description.get()->PpdFileName.Target(),
                                               u"C:\\Ppd\\" + name + u".PPD");
        });
    };
    WCHAR name[] = u"Fax";
    DRIVER_UPGRADE_INFO_1W upgrade = {.pPrinterName = name, .pOldDriverDirectory = nullptr};
    {
        const std::jthread threads[] = {
            describe(u"Fax", true),
            describe(u"Fax", false),
            describe(u"Other", true),
            run(u"Fax", 8,
                [](HANDLE printer) {
                    return bool(OpenSession(OpenPrinterSession(printer, nullptr)));
                }),
            run(u"Fax", 20,
                [&](HANDLE printer) {
                    return DrvDeviceCapabilities(printer, name, DC_COPIES, nullptr, nullptr) != ~0u;
                }),
            run(u"Fax", 8,
                [&](HANDLE) {
                    return DrvUpgradePrinter(1, reinterpret_cast<LPBYTE>(&upgrade)) == TRUE;
                }),
        };
    }
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(descriptionCache.useCount, 0u);
    EXPECT_EQ(fax.OpenWithoutCache(), before);
}

}  // namespace
}  // namespace ksfax
