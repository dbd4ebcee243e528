#include "simulator/panelsim/ControlThread.h"

#include <cerrno>
#include <system_error>
#include <vector>

#include <poll.h>
#include <sys/eventfd.h>

namespace Vantor {

ControlThread::ControlThread(ControlSocket& socket) : m_socket(socket), m_end(eventfd(0, EFD_CLOEXEC))
{
    if (m_end.get() < 0)
        throw std::system_error(errno, std::generic_category(), "eventfd");
    m_thread = std::thread(&ControlThread::run, this);
}

ControlThread::~ControlThread()
{
    eventfd_write(m_end.get(), 1);
    m_thread.join();
}

void ControlThread::run()
{
    for (;;) {
        std::vector<pollfd> polled{{m_end.get(), POLLIN, 0}};
        m_socket.addDescriptors(polled);
        if (poll(polled.data(), polled.size(), -1) < 0)
            continue; // EINTR; the descriptors are few and its own
        if (polled.front().revents != 0)
            return;
        m_socket.serve(polled.data() + 1);
    }
}

} // namespace Vantor
