#pragma once

#include "simulator/panel/BootLoader.h"

#include <mutex>
#include <string>

namespace Vantor {

// Where the flash memory of simulated panels stays when the simulation ends: one file for
// each MCU, panelP-main.bin and panelP-servo.bin, which holds the written bytes.
//
// Threads: every operation from any thread.
class FlashFolder {
public:
    // Makes the folder. Throws std::runtime_error when it can't be made or written to.
    explicit FlashFolder(std::string path);

    // What the panel's files hold; nothing for one that is not there. Throws
    // std::runtime_error for a file that can't be read or is larger than the MCU's flash.
    BootLoader::Flash load(unsigned int panel, const BootLoader::Options& options) const;

    // Writes what an upgrade has touched and is not empty. A file is replaced as a whole:
    // it is the old one until the new one is complete. Throws std::runtime_error.
    void save(unsigned int panel, const BootLoader::Flash& flash);

private:
    std::string fileName(unsigned int panel, const char* mcu) const;
    void saveImage(const std::string& name, const BootLoader::Image& image) const;

    const std::string m_path;
    std::mutex m_mutex; // one save at a time
};

} // namespace Vantor
