#include "panel2mqtt/broker/WakeUp.h"

#include <cerrno>
#include <system_error>

#include <sys/eventfd.h>
#include <unistd.h>

namespace Vantor {

WakeUp::WakeUp() : m_descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (m_descriptor < 0)
        throw std::system_error(errno, std::generic_category(), "eventfd");
}

WakeUp::~WakeUp()
{
    close(m_descriptor);
}

void WakeUp::ring() const
{
    eventfd_write(m_descriptor, 1);
}

void WakeUp::clear() const
{
    eventfd_t ignored = 0;
    eventfd_read(m_descriptor, &ignored);
}

} // namespace Vantor
