#include <atomic>
#include <functional>
#include <thread>

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
    const auto run = [&](std::u16string name, int times, std::function<bool(HANDLE)> act) {
        return std::jthread([=, &fax, &wrong] {
            const platform::PrinterHandle printer = fax.Open(name);
            for (int i = 0; i < times; ++i) {
                wrong += !act(printer.get());
            }
        });
    };
    const auto describes = [](bool allowShared, std::u16string path) {
        return [=](HANDLE printer) {
            const DescriptionUse description(AcquireDescription(printer, allowShared));
            return description && path == description.get()->PpdFileName.Target();
        };
    };
    WCHAR name[] = u"Fax";
    DRIVER_UPGRADE_INFO_1W upgrade = {.pPrinterName = name, .pOldDriverDirectory = nullptr};
    {
        const std::jthread threads[] = {
            run(u"Fax", 60, describes(true, u"C:\\Ppd\\FAX.PPD")),
            run(u"Fax", 60, describes(false, u"C:\\Ppd\\FAX.PPD")),
            run(u"Other", 60, describes(true, u"C:\\Ppd\\OTHER.PPD")),
            run(u"Fax", 8,
                [](HANDLE printer) {
                    return bool(OpenSession(OpenPrinterSession(printer, nullptr)));
                }),
            run(u"Other", 20,
                [](HANDLE printer) {
                    WCHAR other[] = u"Other";
                    return DrvDeviceCapabilities(printer, other, DC_COPIES, nullptr, nullptr) !=
                           ~0u;
                }),
            run(u"Fax", 8,
                [&](HANDLE) {
                    return DrvUpgradePrinter(1, reinterpret_cast<LPBYTE>(&upgrade)) != FALSE;
                }),
        };
    }
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(descriptionCache.useCount, 0u);
    EXPECT_EQ(fax.OpenWithoutCache(), before);
}

}  // namespace
}  // namespace ksfax
