#include "panel2mqtt/broker/LookUp.h"

#include "libMorvaneHostUsb/ThreadAnnotations.h"
#include "panel2mqtt/broker/Loopback.h"

#include <cerrno>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include <netdb.h>
#include <sys/socket.h>

namespace Vantor {

struct LookUp::Shared {
    std::mutex mutex;
    std::optional<Result> result MORVANE_GUARDED_BY(mutex);
};

namespace {

std::string addressTextOf(const addrinfo& entry)
{
    char text[NI_MAXHOST] = {};
    if (getnameinfo(entry.ai_addr, entry.ai_addrlen, text, sizeof text, nullptr, 0, NI_NUMERICHOST) != 0)
        return {};
    return text;
}

LookUp::Result lookUp(const std::string& name, int flags, bool mustBeLoopback)
{
    addrinfo hints = {};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = flags;
    addrinfo* entries = nullptr;
    LookUp::Result result;
    const int error = getaddrinfo(name.c_str(), nullptr, &hints, &entries);
    if (error != 0) {
        const std::string why = error == EAI_SYSTEM ? std::generic_category().message(errno) : gai_strerror(error);
        result.reason = "no address of " + name + " is found: " + why;
        return result;
    }
    for (const addrinfo* entry = entries; entry != nullptr; entry = entry->ai_next) {
        std::string text = addressTextOf(*entry);
        if (!text.empty() && (!mustBeLoopback || isLoopback(*entry->ai_addr)))
            result.addresses.push_back(std::move(text));
    }
    freeaddrinfo(entries);
    if (result.addresses.empty())
        result.reason = "no address of " + name + " is one of this machine: elsewhere the broker needs TLS";
    return result;
}

} // namespace

LookUp::LookUp(const std::string& name, bool mustBeLoopback, std::shared_ptr<const WakeUp> wakeUp)
    : m_shared(std::make_shared<Shared>())
{
    Result numeric = lookUp(name, AI_NUMERICHOST, mustBeLoopback);
    if (!numeric.addresses.empty()) {
        const std::lock_guard<std::mutex> lock(m_shared->mutex);
        m_shared->result = std::move(numeric);
        return;
    }
    std::thread([shared = m_shared, name, mustBeLoopback, wakeUp = std::move(wakeUp)] {
        Result found = lookUp(name, 0, mustBeLoopback);
        {
            const std::lock_guard<std::mutex> lock(shared->mutex);
            shared->result = std::move(found);
        }
        wakeUp->ring();
    }).detach();
}

std::optional<LookUp::Result> LookUp::poll() const
{
    const std::lock_guard<std::mutex> lock(m_shared->mutex);
    return m_shared->result;
}

} // namespace Vantor
