#include "simulator/panelsim/FileClash.h"

#include "simulator/bus/UserText.h"

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <tuple>
#include <vector>

#include <sys/stat.h>

namespace Vantor {

namespace {

struct NamedFile {
    std::string option;
    std::string path; // empty: none
};

// Of a file that there is, its device and inode; of one to be made, its path.
using Identity = std::tuple<dev_t, ino_t, std::string>;

// Empty when there can be none.
std::filesystem::path wholePath(const std::string& path)
{
    std::error_code error;
    const auto absolute = std::filesystem::absolute(path, error);
    return error ? std::filesystem::path() : std::filesystem::weakly_canonical(absolute, error);
}

std::optional<Identity> identityOf(const std::string& path)
{
    struct stat status = {};
    if (path.empty())
        return std::nullopt;
    if (stat(path.c_str(), &status) != 0)
        return Identity(0, 0, wholePath(path).string());
    return S_ISREG(status.st_mode) ? std::optional(Identity(status.st_dev, status.st_ino, "")) : std::nullopt;
}

bool isSame(const NamedFile& one, const NamedFile& other)
{
    const auto identity = identityOf(one.path);
    return identity && identity == identityOf(other.path);
}

// Whether the folder's owner may write a file of this name: "panel0-lcd1.png".
bool isInFolder(const NamedFile& file, const std::string& folder, std::string_view extension)
{
    if (file.path.empty() || folder.empty())
        return false;
    const std::filesystem::path path = wholePath(file.path);
    return path.extension() == extension && path.filename().string().rfind("panel", 0) == 0 &&
           path.parent_path() == wholePath(folder + "/x").parent_path();
}

[[noreturn]] void fail(const NamedFile& file, const std::string& use)
{
    throw std::runtime_error(file.option + " '" + UserText::shown(file.path) + "' is also what " + use);
}

} // namespace

void FileClash::refuse(const PanelsimOptions& options)
{
    const std::vector<NamedFile> inputs{
        {"--replay", options.replayFile}, {"--expect", options.expectFile}, {"--script", options.scriptFile}};
    const NamedFile log{"--log", options.logFile == "-" ? "" : options.logFile};
    const NamedFile capture{"--record", options.captureFile};
    for (const NamedFile& output : {log, capture})
        for (const NamedFile& input : inputs)
            if (isSame(output, input))
                fail(output, input.option + " reads");
    if (isSame(capture, log))
        fail(capture, "--log writes");

    std::vector<NamedFile> all = inputs;
    all.insert(all.end(), {log, capture});
    for (const NamedFile& file : all) {
        if (isInFolder(file, options.pngFolder, ".png"))
            fail(file, "--png may write");
        if (isInFolder(file, options.flashFolder, ".bin"))
            fail(file, "--flash-dir may write");
    }
}

} // namespace Vantor
