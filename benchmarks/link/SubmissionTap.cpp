#include "benchmarks/link/SubmissionTap.h"

#include "wire/PanelLink.h"

#include <utility>

#include <dlfcn.h>

namespace Vantor {

namespace {

std::function<void(const libusb_transfer&)> s_told;

} // namespace

SubmissionTap::SubmissionTap(std::function<void(const libusb_transfer&)> told)
{
    s_told = std::move(told);
}

SubmissionTap::~SubmissionTap()
{
    s_told = nullptr;
}

} // namespace Vantor

// In front of the real one: the library's calls and the bare loop's come here.
int LIBUSB_CALL libusb_submit_transfer(libusb_transfer* transfer)
{
    static const auto next =
        reinterpret_cast<decltype(&libusb_submit_transfer)>(dlsym(RTLD_NEXT, "libusb_submit_transfer"));
    if (Vantor::s_told && transfer->endpoint == Vantor::PanelLink::outEndpoint)
        Vantor::s_told(*transfer);
    return next(transfer);
}
