#include "simulator/panelsim/ControlPath.h"

#include "simulator/bus/QuantityText.h"
#include "simulator/bus/UserText.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace Vantor {

namespace {

constexpr char extension[] = ".sock";
constexpr std::size_t longestPath = sizeof(sockaddr_un::sun_path) - 1;

// Through a link, too.
bool isOwnFolder(const std::string& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid();
}

bool isPrivate(const std::string& folder)
{
    struct stat status = {};
    return lstat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
           (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
}

// Of a socket in the folder: the process that has made it, 0 when the name is another's.
pid_t processOf(const std::filesystem::path& path)
{
    const auto number = parseNumber(path.stem().string(), INT_MAX);
    return path.extension() == extension ? static_cast<pid_t>(number.value_or(0)) : 0;
}

bool isGone(pid_t process)
{
    return kill(process, 0) != 0 && errno == ESRCH;
}

std::string commandOf(pid_t process)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/cmdline", std::ios::binary);
    std::string words(std::istreambuf_iterator<char>(file), {});
    std::replace(words.begin(), words.end(), '\0', ' ');
    words.erase(words.find_last_not_of(' ') + 1);
    return UserText::shown(words);
}

} // namespace

void ControlPath::check(const std::string& path)
{
    if (path.size() > longestPath)
        throw std::runtime_error("a socket's path has at most " + std::to_string(longestPath) + " bytes, this one " +
                                 std::to_string(path.size()));
}

Descriptor ControlPath::connect(const std::string& path)
{
    Descriptor descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, longestPath);
    if (descriptor.get() < 0 ||
        ::connect(descriptor.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return descriptor;
    const int error = errno;
    descriptor.reset();
    errno = error;
    return descriptor;
}

std::string ControlPath::folder()
{
    const std::string user = std::to_string(geteuid());
    const char* const named = std::getenv("XDG_RUNTIME_DIR"); // NOLINT(concurrency-mt-unsafe): nobody changes it
    for (const std::string& runtime : {std::string(named != nullptr ? named : ""), "/run/user/" + user})
        if (!runtime.empty() && runtime.front() == '/' && isOwnFolder(runtime))
            return runtime + "/panelsim";
    return "/tmp/panelsim-" + user;
}

std::string ControlPath::make(const std::string& folder)
{
    if (mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST)
        throw std::runtime_error("cannot make '" + UserText::shown(folder) +
                                 "': " + std::generic_category().message(errno));
    if (!isPrivate(folder))
        throw std::runtime_error("'" + UserText::shown(folder) + "' is not a folder of this user alone");
    find(folder); // away with what is left of others
    return folder + "/" + std::to_string(getpid()) + extension;
}

std::vector<ControlPath::Running> ControlPath::find(const std::string& folder)
{
    std::vector<Running> running;
    if (!isPrivate(folder))
        return running;
    std::error_code ignored; // an empty one, then
    for (const auto& entry : std::filesystem::directory_iterator(folder, ignored)) {
        const pid_t process = processOf(entry.path());
        if (process == 0)
            continue;
        const std::string path = entry.path();
        if (connect(path).get() >= 0 || errno == EAGAIN)
            running.push_back({path, process, commandOf(process)});
        else if (errno == ECONNREFUSED && isGone(process)) // one that begins does not listen yet
            unlink(path.c_str());
    }
    std::sort(running.begin(), running.end(), [](const Running& a, const Running& b) { return a.path < b.path; });
    return running;
}

void ControlPath::clear(const std::string& path)
{
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0)
        return;
    if (!S_ISSOCK(status.st_mode))
        throw std::runtime_error("there is something else of that name");
    if (connect(path).get() >= 0 || errno == EAGAIN)
        throw std::runtime_error("another simulation listens there");
    if (errno == ECONNREFUSED)
        unlink(path.c_str());
}

} // namespace Vantor
