#include "simulator/panelsim/OutputFile.h"

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Vantor {

namespace {

constexpr mode_t fileMode = 0666; // less what the umask takes

[[noreturn]] void fail(int error)
{
    if (error == ELOOP) // of O_NOFOLLOW; the system's words are about many links
        throw std::runtime_error("it is a symbolic link");
    throw std::runtime_error(std::generic_category().message(error));
}

void refuseLink(const std::string& path)
{
    struct stat status = {};
    if (lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode))
        fail(ELOOP);
}

// A pipe's reader is not waited for: nobody could interrupt that any more.
int openAtOnce(const std::string& path)
{
    constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    const int descriptor = ::open(path.c_str(), flags, fileMode);
    const int error = descriptor < 0 ? errno : 0;
    struct stat status = {};
    if (error == ENXIO && stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode))
        throw std::runtime_error("it is a pipe that nobody reads");
    if (error != 0)
        fail(error);
    fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) & ~O_NONBLOCK); // for writing
    return descriptor;
}

// One that nobody has made before, in the folder of `path`, as renaming would copy else.
std::string makeTemporary(const std::string& path, int& descriptor)
{
    constexpr int attempts = 100;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        std::string name = path + "." + std::to_string(getpid()) + "-" + std::to_string(attempt);
        descriptor = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, fileMode);
        if (descriptor >= 0)
            return name;
        if (errno != EEXIST)
            break;
    }
    fail(errno);
}

// 0 or an errno. Closes the file.
int writeAll(int descriptor, const std::vector<std::uint8_t>& bytes)
{
    int error = 0;
    for (std::size_t done = 0; done < bytes.size() && error == 0;) {
        const ssize_t written = write(descriptor, bytes.data() + done, bytes.size() - done);
        if (written >= 0)
            done += static_cast<std::size_t>(written);
        else if (errno != EINTR)
            error = errno;
    }
    if (close(descriptor) != 0 && error == 0)
        error = errno;
    return error;
}

} // namespace

std::FILE* OutputFile::open(const std::string& path)
{
    const int descriptor = openAtOnce(path);
    if (std::FILE* const file = fdopen(descriptor, "w"))
        return file;
    const int error = errno;
    close(descriptor);
    fail(error);
}

void OutputFile::replace(const std::string& path, const std::vector<std::uint8_t>& bytes)
{
    // Renaming would only replace the link; but somebody wanted the file behind it.
    refuseLink(path);
    int descriptor = -1;
    const std::string temporary = makeTemporary(path, descriptor);
    int error = writeAll(descriptor, bytes);
    if (error == 0 && std::rename(temporary.c_str(), path.c_str()) != 0)
        error = errno;
    if (error == 0)
        return;
    unlink(temporary.c_str());
    fail(error);
}

} // namespace Vantor
