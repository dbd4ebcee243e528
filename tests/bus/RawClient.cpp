// Talks to a panel through libusb alone: sends each argument, bytes in hexadecimal, as
// one bulk transfer; "clear" clears the halt of that endpoint by a request to endpoint 0,
// "unhalt" by usbfs's own means; "interface" and "configuration" set those that a panel has;
// "read=BYTES" reads once, and is the end: it prints the status of the transfer and how
// many URBs the kernel still has when libusb reports it. Exit code 0 when all were taken
// whole.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <libusb-1.0/libusb.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

namespace {

constexpr unsigned int timeout = 1000; // ms

int urbsInTheKernel = 0;

bool send(libusb_device_handle* handle, const std::string& hex)
{
    std::vector<unsigned char> bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(static_cast<unsigned char>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    int taken = 0;
    const int result =
        libusb_bulk_transfer(handle, 0x02, bytes.data(), static_cast<int>(bytes.size()), &taken, timeout);
    if (result != 0)
        std::fprintf(stderr, "%s\n", libusb_error_name(result));
    return result == 0 && taken == static_cast<int>(bytes.size());
}

bool hasDone(const std::string& what, int result)
{
    if (result != 0)
        std::fprintf(stderr, "%s: %s\n", what.c_str(), libusb_error_name(result));
    return result == 0;
}

bool clearHalt(libusb_device_handle* handle)
{
    const int result = libusb_control_transfer(handle, LIBUSB_RECIPIENT_ENDPOINT, LIBUSB_REQUEST_CLEAR_FEATURE, 0, 0x02,
                                               nullptr, 0, timeout);
    return hasDone("clear", result);
}

// At once, as nothing is certain any more when URBs of a reported transfer are left.
void LIBUSB_CALL endWithRead(libusb_transfer* transfer)
{
    std::printf("status %d, %d left\n", transfer->status, urbsInTheKernel);
    std::fflush(stdout);
    std::_Exit(EXIT_SUCCESS);
}

bool read(libusb_device_handle* handle, std::size_t size)
{
    std::vector<unsigned char> bytes(size);
    libusb_transfer* const transfer = libusb_alloc_transfer(0);
    libusb_fill_bulk_transfer(transfer, handle, 0x81, bytes.data(), static_cast<int>(size), endWithRead, nullptr,
                              timeout);
    for (int result = libusb_submit_transfer(transfer); result == 0;)
        result = libusb_handle_events(nullptr);
    return false;
}

bool execute(libusb_device_handle* handle, const std::string& word)
{
    const std::string reading = "read=";
    if (word == "clear")
        return clearHalt(handle);
    if (word == "unhalt")
        return hasDone(word, libusb_clear_halt(handle, 0x81));
    if (word == "interface")
        return hasDone(word, libusb_set_interface_alt_setting(handle, 0, 0));
    if (word == "configuration")
        return hasDone(word, libusb_set_configuration(handle, 1));
    if (word.rfind(reading, 0) == 0)
        return read(handle, std::stoul(word.substr(reading.size())));
    return send(handle, word);
}

} // namespace

// In front of the C library's: libusb's calls come here.
extern "C" int ioctl(int descriptor, unsigned long request, ...) noexcept
{
    using Ioctl = int (*)(int, unsigned long, void*);
    static const auto next = reinterpret_cast<Ioctl>(dlsym(RTLD_NEXT, "ioctl"));
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    const int result = next(descriptor, request, argument);
    if (result == 0 && request == USBDEVFS_SUBMITURB)
        ++urbsInTheKernel;
    if (result == 0 && (request == USBDEVFS_REAPURB || request == USBDEVFS_REAPURBNDELAY))
        --urbsInTheKernel;
    return result;
}

int main(int argc, char** argv)
{
    if (libusb_init(nullptr) != 0)
        return EXIT_FAILURE;
    libusb_device_handle* const handle = libusb_open_device_with_vid_pid(nullptr, 0xDEAD, 0xBEEF);
    bool good = handle != nullptr && libusb_claim_interface(handle, 0) == 0;
    for (int i = 1; good && i < argc; ++i)
        good = execute(handle, argv[i]);
    if (handle != nullptr)
        libusb_close(handle);
    libusb_exit(nullptr);
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
