// What the thread sanitizer must not report in these programs; it asks for this by name.
//
// libusb_open, retire: the manager calls libusb with its mutex held, and libusb calls
// the manager back with its own locks held. Both happen on the one thread that runs
// libusb's events, or on the thread that initialises before that one exists.
// umockdev, glib: not built for the sanitizer, which can't see how they synchronise.
extern "C" const char* __tsan_default_suppressions();

const char* __tsan_default_suppressions()
{
    return "deadlock:libusb_open\n"
           "deadlock:UsbManager::retire\n"
           "race:libumockdev.so.0\n"
           "race:libglib-2.0.so.0\n"
           "race:libgio-2.0.so.0\n";
}
