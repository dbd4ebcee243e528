#pragma once

#include "simulator/capture/CaptureWriter.h"

#include <atomic>
#include <functional>
#include <string>

namespace Vantor {

// What --record writes: all that crosses the links, each thing at the moment when it does.
//
// Threads: one at a time.
class CaptureFile {
public:
    using Complain = std::function<void(const std::string&)>;

    // Throws std::runtime_error for a file that can't be written. `complain` hears of the
    // first frame that can't be; none is written after that.
    CaptureFile(const std::string& path, Complain complain);

    void write(CapturedUrb urb);

    // Whether frames are missing; from any thread.
    bool hasFailed() const { return m_hasFailed; }

private:
    const std::string m_path;
    const Complain m_complain;
    CaptureWriter m_writer;
    std::atomic<bool> m_hasFailed{false};
};

} // namespace Vantor
