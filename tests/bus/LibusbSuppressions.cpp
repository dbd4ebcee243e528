// What the thread sanitizer must not report in a client; it asks for this by name.
//
// The manager calls libusb with its mutex held, and libusb calls the manager back with
// its own locks held. Both happen on the one thread that runs libusb's events, or on
// the thread that initialises before that one exists.
extern "C" const char* __tsan_default_suppressions(); // NOLINT(bugprone-reserved-identifier): its name

const char* __tsan_default_suppressions() // NOLINT(bugprone-reserved-identifier)
{
    return "deadlock:libusb_open\n"
           "deadlock:UsbManager::retire\n";
}
