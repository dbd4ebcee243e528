#pragma once

#include <string_view>
#include <vector>

namespace Vantor {

// A file of the page, which is part of the program.
struct PageFile {
    std::string_view name;
    std::string_view type; // as HTTP calls it
    std::string_view content;
};

const std::vector<PageFile>& getPageFiles();

} // namespace Vantor
