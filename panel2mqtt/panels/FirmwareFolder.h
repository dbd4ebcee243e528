#pragma once

#include "panel2mqtt/desk/FirmwareShelf.h"

#include <string>
#include <utility>

namespace Vantor {

// Images in memory, which nobody changes between the check of their sum and their use: the
// library reads paths, so each is an anonymous file of this process.
//
// Files are taken from below one folder, with no symbolic link on the way from there.
//
// Threads: any. Blocks as long as the file system does.
class FirmwareFolder : public FirmwareShelf {
public:
    // Empty: no files.
    explicit FirmwareFolder(std::string folder) : m_folder(std::move(folder)) {}

    Result keep(const std::string& bytes) override;
    Result fetch(const std::string& name, std::size_t most) override;

private:
    const std::string m_folder;
};

} // namespace Vantor
