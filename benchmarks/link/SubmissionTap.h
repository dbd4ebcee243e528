#pragma once

#include <functional>

#include <libusb-1.0/libusb.h>

namespace Vantor {

// Stands in front of libusb_submit_transfer, whoever calls it, and tells of sends before
// they go on to libusb.
//
// Threads: put up and taken down while nobody submits; `told` runs on the submitting thread.
class SubmissionTap {
public:
    explicit SubmissionTap(std::function<void(const libusb_transfer&)> told);
    ~SubmissionTap();
    SubmissionTap(const SubmissionTap&) = delete;
    SubmissionTap& operator=(const SubmissionTap&) = delete;
};

} // namespace Vantor
