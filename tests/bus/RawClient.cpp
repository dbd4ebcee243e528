// Talks to a panel through libusb alone: sends each argument, bytes in hexadecimal, as
// one bulk transfer; "clear" clears the halt of that endpoint by a request to endpoint 0.
// Exit code 0 when all were taken whole.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <libusb-1.0/libusb.h>

namespace {

constexpr unsigned int timeout = 1000; // ms

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

bool clearHalt(libusb_device_handle* handle)
{
    const int result = libusb_control_transfer(handle, LIBUSB_RECIPIENT_ENDPOINT, LIBUSB_REQUEST_CLEAR_FEATURE, 0, 0x02,
                                               nullptr, 0, timeout);
    if (result != 0)
        std::fprintf(stderr, "clear: %s\n", libusb_error_name(result));
    return result == 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (libusb_init(nullptr) != 0)
        return EXIT_FAILURE;
    libusb_device_handle* const handle = libusb_open_device_with_vid_pid(nullptr, 0xDEAD, 0xBEEF);
    bool good = handle != nullptr && libusb_claim_interface(handle, 0) == 0;
    for (int i = 1; good && i < argc; ++i)
        good = std::string(argv[i]) == "clear" ? clearHalt(handle) : send(handle, argv[i]);
    if (handle != nullptr)
        libusb_close(handle);
    libusb_exit(nullptr);
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
