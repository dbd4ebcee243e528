#pragma once

#include <string>

namespace Vantor {

// The file that stands for a device node of usbfs: a pseudo-terminal behind a symbolic
// link. usbfs lets poll say "writable" when there is something to reap, and POLLERR
// when the device is gone; a plain file is always writable and would have libusb spin.
//
// Throws std::system_error on construction.
class UsbfsNode {
public:
    // `path`: where clients look for it; the folders above it are made.
    explicit UsbfsNode(const std::string& path);
    ~UsbfsNode();
    UsbfsNode(const UsbfsNode&) = delete;
    UsbfsNode& operator=(const UsbfsNode&) = delete;

    // Whether there is something to reap; not at first.
    void setReady(bool ready);

    // The device is gone, for every file that is open on the node, and so is the node.
    void hangUp();

private:
    UsbfsNode() = default;

    std::string m_path;
    int m_master = -1;
    int m_slave = -1;
    bool m_ready = false;
};

} // namespace Vantor
