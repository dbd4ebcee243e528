#pragma once

#include "libMorvaneHostUsb/ThreadAnnotations.h"
#include "tests/support/TemporaryFolder.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Vantor {

// What systemd is to a service that it starts: the other end of $NOTIFY_SOCKET, which programs
// find that are started meanwhile.
//
// Threads: one, and its own.
class NotifySocket {
public:
    NotifySocket() : m_path(m_folder / "notify"), m_socket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, m_path.c_str(), sizeof address.sun_path - 1);
        EXPECT_EQ(bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        setenv("NOTIFY_SOCKET", m_path.c_str(), 1);
        m_thread = std::thread([this] { listen(); });
    }

    ~NotifySocket()
    {
        unsetenv("NOTIFY_SOCKET");
        shutdown(m_socket, SHUT_RDWR);
        m_thread.join();
        close(m_socket);
    }

    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;

    void awaitNews(const std::string& news, std::ptrdiff_t times = 1)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (countNews(news) < times) {
            ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "not told " << news;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }

    // As many as there are of it by now.
    std::ptrdiff_t countNews(const std::string& news)
    {
        const std::vector<std::string> all = getNews();
        return std::count(all.begin(), all.end(), news);
    }

    std::vector<std::string> getNews()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_news;
    }

private:
    void listen()
    {
        char news[4096];
        for (ssize_t size = 0; (size = recv(m_socket, news, sizeof news, 0)) > 0;) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_news.emplace_back(news, static_cast<std::size_t>(size));
        }
    }

    const TemporaryFolder m_folder;
    const std::string m_path;
    const int m_socket;
    std::mutex m_mutex;
    std::vector<std::string> m_news MORVANE_GUARDED_BY(m_mutex);
    std::thread m_thread;
};

} // namespace Vantor
