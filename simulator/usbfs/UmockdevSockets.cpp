// umockdev tells the client of devices through sockets whose names it has listed before,
// and ends the process when one of them has gone since: the client closes its monitor, or
// ends, at that very moment. These stand in front of the C library's, for umockdev's calls,
// and have it believe that nobody listened (ECONNREFUSED, which it takes), or that all was
// sent. UeventListeners sees to it that there is room.
#include <cerrno>
#include <cstddef>
#include <cstring>

#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

template <typename Function> Function* findNext(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool isListener(const void* address)
{
    sockaddr_un name{};
    if (address == nullptr)
        return false;
    std::memcpy(&name.sun_family, address, sizeof name.sun_family);
    if (name.sun_family != AF_UNIX)
        return false;
    const char* const path = static_cast<const char*>(address) + offsetof(sockaddr_un, sun_path);
    return std::strstr(path, "/umockdev.") != nullptr && std::strstr(path, "/event") != nullptr;
}

std::size_t sizeOf(const msghdr& message)
{
    std::size_t size = 0;
    for (std::size_t i = 0; i < message.msg_iovlen; ++i)
        size += message.msg_iov[i].iov_len;
    return size;
}

} // namespace

extern "C" int connect(int descriptor, const sockaddr* address, socklen_t length)
{
    static auto* const next = findNext<int(int, const sockaddr*, socklen_t)>("connect");
    const int result = next(descriptor, address, length);
    if (result != 0 && errno == ENOENT && isListener(address))
        errno = ECONNREFUSED;
    return result;
}

// umockdev gives the name of the socket, but not the name's length.
extern "C" ssize_t sendmsg(int descriptor, const msghdr* message, int flags)
{
    static auto* const next = findNext<ssize_t(int, const msghdr*, int)>("sendmsg");
    const ssize_t result = next(descriptor, message, flags);
    if (result < 0 && errno == ECONNREFUSED && message->msg_namelen == 0 && isListener(message->msg_name))
        return static_cast<ssize_t>(sizeOf(*message));
    return result;
}
