// What the thread sanitizer must not report in a client; it asks for this by name.
//
// The manager opens and closes devices with its mutex held, and libusb calls the manager
// back with its own locks held. Both happen on the one thread that runs libusb's events, or
// the opening happens in initialise, while nobody runs events (see EventPump).
extern "C" const char* __tsan_default_suppressions();

const char* __tsan_default_suppressions()
{
    return "deadlock:UsbManager::enterDevice\n"
           "deadlock:UsbManager::retire\n";
}
