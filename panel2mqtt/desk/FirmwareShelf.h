#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <variant>

namespace Vantor {

// An image that no longer changes.
struct ShelfImage {
    std::string path; // by which this process can read it
    std::uint32_t size = 0;
    std::string sha256;                 // 64 lower-case hexadecimal digits
    std::shared_ptr<const void> keeper; // the path is good as long as it lives
};

// Where firmware images come from, as the desk sees it: copies of messages, and files below
// the configured folder.
//
// Threads: the desk's. Lifetime: outlives the desk, not the images.
class FirmwareShelf {
public:
    using Result = std::variant<ShelfImage, std::string>; // or why there is none

    virtual ~FirmwareShelf() = default;

    virtual Result keep(const std::string& bytes) = 0;

    // A name as FlashOrder lets pass; one of more than `most` bytes is none.
    virtual Result fetch(const std::string& name, std::size_t most) = 0;
};

} // namespace Vantor
