#pragma once

#include "libMorvaneHostUsb/ThreadAnnotations.h"
#include "simulator/web/PanelBoard.h"
#include "simulator/web/RequestGuard.h"
#include "simulator/web/ScreenFeed.h"
#include "simulator/web/WebAddress.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace httplib {
struct Request;
struct Response;
class Server;
} // namespace httplib

namespace Vantor {

// The page and the interface behind it: docs/web.md.
//
// Threads: any for `end`; its own answer requests, one each. Lifetime: the board must outlive it.
class WebServer {
public:
    // Carries out a line of the command language: what there is to complain of, empty when it is done.
    using Execute = std::function<std::string(const std::string& line)>;

    static constexpr unsigned int maxStreams = 8;

    // Nobody is answered before `start`; who asks earlier waits. Throws std::runtime_error when
    // nobody can be served there.
    WebServer(PanelBoard& board, const WebAddress& address, const ScreenFeed::UseBus& useBus, Execute execute);
    ~WebServer();
    WebServer(const WebServer&) = delete;
    WebServer& operator=(const WebServer&) = delete;

    // With the token.
    std::string getUrl() const;
    // The one for other machines, where it is served to any; empty elsewhere.
    std::string getNetworkUrl() const;

    // Once. The library's connections are inherited by programs that are started meanwhile.
    void start();

    // Those who listen are told what there is now, and that it is the end; those who don't read
    // are waited for a little while. The bus is used for the last time; a command that is being
    // carried out is waited for.
    void end();

    // Nobody is answered any more; also `end`.
    void stop();

private:
    using Request = httplib::Request;
    using Response = httplib::Response;
    class Place;

    std::uint16_t bind(const WebAddress& address);
    void awaitAnswers();
    void addGuard();
    void admit(const Request& request) const;
    void addPage();
    void addInterface();
    void addPictures();
    void serve();

    void answerState(Response& response);
    void answerEvents(const Request& request, Response& response);
    void answerCommand(const Request& request, Response& response);
    void answerScript(Response& response) const;
    void answerRecords(const Request& request, Response& response) const;
    void answerPixel(const Request& request, Response& response);
    void answerPicture(const Request& request, Response& response);
    PanelScreen takePicture(const Request& request);

    PanelBoard& m_board;
    const WebAddress m_address;
    const Execute m_execute;
    const std::string m_simulation;
    ScreenFeed m_feed;
    std::mutex m_streamsMutex;
    std::condition_variable m_streamEnded; // or an answer
    unsigned int m_streams MORVANE_GUARDED_BY(m_streamsMutex) = 0;
    unsigned int m_answers MORVANE_GUARDED_BY(m_streamsMutex) = 0; // under way
    const std::unique_ptr<httplib::Server> m_server;
    const std::uint16_t m_port;
    const RequestGuard m_guard;
    std::mutex m_commandMutex; // also one command at a time
    bool m_isOver MORVANE_GUARDED_BY(m_commandMutex) = false;
    std::mutex m_gifMutex; // one at a time, as each takes a processor for seconds
    std::atomic<bool> m_hasFailed{false};
    std::thread m_thread;
};

} // namespace Vantor
