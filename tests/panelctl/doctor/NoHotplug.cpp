// Loaded before libusb: as one that was built without hotplug, to whoever uses it. Within
// libusb the answer must stay, as its list of devices depends on it.
#include <cstring>

#include <dlfcn.h>
#include <libusb-1.0/libusb.h>

int libusb_has_capability(uint32_t capability)
{
    Dl_info caller{};
    const bool isLibusb =
        dladdr(__builtin_return_address(0), &caller) != 0 && std::strstr(caller.dli_fname, "libusb-1.0") != nullptr;
    return isLibusb || capability != LIBUSB_CAP_HAS_HOTPLUG ? 1 : 0;
}

int libusb_hotplug_register_callback(libusb_context* /*context*/, int /*events*/, int /*flags*/, int /*vendor*/,
                                     int /*product*/, int /*class*/, libusb_hotplug_callback_fn /*callback*/,
                                     void* /*data*/, libusb_hotplug_callback_handle* /*handle*/)
{
    return LIBUSB_ERROR_NOT_SUPPORTED;
}
