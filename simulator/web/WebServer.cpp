#include "simulator/web/WebServer.h"

#include "simulator/bus/QuantityText.h"
#include "simulator/picture/GifEncoder.h"
#include "simulator/picture/PixelText.h"
#include "simulator/picture/PngEncoder.h"
#include "simulator/picture/Zoom.h"
#include "simulator/web/EventStream.h"
#include "simulator/web/PageFile.h"
#include "simulator/web/RandomText.h"
#include "simulator/web/WebJson.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>

namespace Vantor {

namespace {

constexpr std::size_t simulationDigits = 16;
constexpr std::size_t longestCommand = std::size_t{1} << 18;
constexpr unsigned int otherThreads = 24; // beside those of streams
constexpr std::chrono::seconds heartbeat{5};
constexpr std::chrono::seconds writePatience{2}; // with a listener that does not read
constexpr char commandPath[] = "/api/command";
constexpr char json[] = "application/json";
constexpr char text[] = "text/plain; charset=utf-8";

// What is wrong with a request.
struct WebError {
    int status;
    std::string text;
};

// The library ignores SIGPIPE for the whole process, and for programs that it starts; here, the
// threads that serve block it.
std::unique_ptr<httplib::Server> makeServer()
{
    struct sigaction before = {};
    sigaction(SIGPIPE, nullptr, &before);
    auto server = std::make_unique<httplib::Server>();
    sigaction(SIGPIPE, &before, nullptr);
    server->new_task_queue = [] { return new httplib::ThreadPool(WebServer::maxStreams + otherThreads); };
    // Not SO_REUSEPORT, with which two simulations would share a port.
    server->set_socket_options([](int descriptor) {
        const int yes = 1;
        setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        // What a listener does not read should not lie here as old pictures.
        const int bytes = 256 << 10;
        setsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes);
    });
    // A connection that says nothing has a thread to itself. After less time, a browser on a busy
    // machine comes to use one that has been closed, and does not always open another.
    server->set_keep_alive_max_count(1);
    server->set_keep_alive_timeout(5);
    server->set_read_timeout(std::chrono::seconds(5));
    server->set_write_timeout(writePatience);
    server->set_payload_max_length(longestCommand);
    server->set_tcp_nodelay(true);
    return server;
}

void refuse(httplib::Response& response, const WebError& error)
{
    response.status = error.status;
    response.set_content(WebJson::formatError(error.text), json);
}

std::uint64_t parseParameter(const std::string& name, const std::string& value, std::uint64_t max,
                             std::uint64_t min = 0)
{
    const auto number = parseNumber(value, max);
    if (!number || *number < min)
        throw WebError{400, name + ": expected a number from " + std::to_string(min) + " to " + std::to_string(max)};
    return *number;
}

std::optional<unsigned int> findParameter(const httplib::Request& request, const char* name, unsigned int max,
                                          unsigned int min = 0)
{
    if (!request.has_param(name))
        return std::nullopt;
    return static_cast<unsigned int>(parseParameter(name, request.get_param_value(name), max, min));
}

// So that one that is misspelt is not passed over.
void allow(const httplib::Request& request, const std::vector<std::string>& names)
{
    for (const auto& [name, value] : request.params)
        if (std::find(names.begin(), names.end(), name) == names.end())
            throw WebError{400, "'" + name.substr(0, 40) + "' is no parameter here"};
}

bool isWanted(const httplib::Request& request, const char* name)
{
    return findParameter(request, name, 1).value_or(1) != 0;
}

unsigned int zoomOf(const httplib::Request& request)
{
    return findParameter(request, "zoom", Zoom::max, 1).value_or(1);
}

ScreenFeed::Place placeOf(const httplib::Request& request)
{
    return {static_cast<unsigned int>(parseParameter("panel", request.matches[1], UINT32_MAX)),
            static_cast<std::uint16_t>(parseParameter("LCD", request.matches[2], UINT16_MAX))};
}

WebError noSuchLcd(const ScreenFeed::Place& place, const PanelBoard& board)
{
    if (board.getLife(place.first) == 0)
        return {404, "there is no panel " + std::to_string(place.first)};
    return {404, "panel " + std::to_string(place.first) + " has no LCD " + std::to_string(place.second) +
                     " that was drawn on or that --lcd names"};
}

// The part that the parameters name, of the whole.
PanelScreen crop(const httplib::Request& request, const PanelScreen& whole)
{
    const unsigned int width = whole.getWidth();
    const unsigned int height = whole.getHeight();
    const unsigned int x = findParameter(request, "x", width - 1).value_or(0);
    const unsigned int y = findParameter(request, "y", height - 1).value_or(0);
    const unsigned int columns = findParameter(request, "width", width - x, 1).value_or(width - x);
    const unsigned int rows = findParameter(request, "height", height - y, 1).value_or(height - y);
    return whole.getPart(x, y, {columns, rows});
}

std::string asText(const std::vector<std::uint8_t>& bytes)
{
    return {bytes.begin(), bytes.end()};
}

std::vector<GifEncoder::Frame> framesOf(const ScreenFeed::Animation& animation)
{
    std::vector<GifEncoder::Frame> frames;
    for (std::size_t i = 0; i < animation.frames.size(); ++i) {
        const auto end = i + 1 < animation.frames.size() ? animation.frames[i + 1].time : animation.end;
        const auto shown = std::chrono::duration_cast<std::chrono::microseconds>(end - animation.frames[i].time);
        frames.push_back({animation.frames[i].screen, std::max(shown, std::chrono::microseconds(0))});
    }
    return frames;
}

bool isForAny(const WebAddress& address)
{
    return address.address == "0.0.0.0" || address.address == "::";
}

// Of the server at this port, so that its threads wait for nobody.
void closeConnections(std::uint16_t port)
{
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
        const auto descriptor = parseNumber(entry.path().filename().string(), INT_MAX);
        sockaddr_storage address{};
        socklen_t size = sizeof address;
        if (!descriptor ||
            getsockname(static_cast<int>(*descriptor), reinterpret_cast<sockaddr*>(&address), &size) != 0)
            continue;
        const in_port_t own = address.ss_family == AF_INET    ? reinterpret_cast<sockaddr_in*>(&address)->sin_port
                              : address.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6*>(&address)->sin6_port
                                                              : in_port_t{0};
        if (own == htons(port))
            shutdown(static_cast<int>(*descriptor), SHUT_RDWR);
    }
}

} // namespace

WebServer::WebServer(PanelBoard& board, const WebAddress& address, const ScreenFeed::UseBus& useBus, Execute execute)
    : m_board(board), m_address(address), m_execute(std::move(execute)), m_simulation(makeRandomText(simulationDigits)),
      m_feed(board, useBus), m_server(makeServer()), m_port(bind(address)), m_guard(address, m_port)
{
    addGuard();
    addPage();
    addInterface();
    addPictures();
}

WebServer::~WebServer()
{
    stop();
}

void WebServer::stop()
{
    if (!m_thread.joinable())
        return;
    end();
    m_server->stop();
    awaitAnswers();
    closeConnections(m_port);
    m_thread.join();
}

// As to the command that ends all of it.
void WebServer::awaitAnswers()
{
    std::unique_lock<std::mutex> lock(m_streamsMutex);
    m_streamEnded.wait_for(lock, writePatience, [this]() MORVANE_REQUIRES(m_streamsMutex) { return m_answers == 0; });
}

void WebServer::start()
{
    m_thread = std::thread(&WebServer::serve, this);
    while (!m_server->is_running() && !m_hasFailed) // or stopping it would not be heard
        std::this_thread::yield();
}

void WebServer::end()
{
    {
        const std::lock_guard<std::mutex> lock(m_commandMutex);
        if (std::exchange(m_isOver, true))
            return;
    }
    m_feed.end();
    // The library drops what is not written when it stops.
    std::unique_lock<std::mutex> lock(m_streamsMutex);
    m_streamEnded.wait_for(lock, writePatience + std::chrono::seconds(1),
                           [this]() MORVANE_REQUIRES(m_streamsMutex) { return m_streams == 0; });
}

std::uint16_t WebServer::bind(const WebAddress& address)
{
    const int port = address.port != 0 ? (m_server->bind_to_port(address.address, address.port) ? address.port : -1)
                                       : m_server->bind_to_any_port(address.address);
    if (port <= 0)
        throw std::runtime_error("cannot serve a page at " + address.format(address.port) +
                                 ": the port is taken, or the address is not this machine's");
    return static_cast<std::uint16_t>(port);
}

void WebServer::serve()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr); // its workers inherit it
    try {
        m_server->listen_after_bind();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "panelsim: no page: %s\n", error.what());
    }
    m_hasFailed = true;
}

std::string WebServer::getUrl() const
{
    const WebAddress shown{isForAny(m_address) ? "127.0.0.1" : m_address.address, m_port};
    return "http://" + shown.format(m_port) + "/#" + m_guard.getToken();
}

std::string WebServer::getNetworkUrl() const
{
    const std::string name = RequestGuard::getHostName();
    if (!isForAny(m_address) || name.empty())
        return {};
    return "http://" + name + ":" + std::to_string(m_port) + "/#" + m_guard.getToken();
}

void WebServer::addGuard()
{
    m_server->set_default_headers({
        {"Cache-Control", "no-store"},
        {"Content-Security-Policy", "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob: "
                                    "data:; connect-src 'self'; base-uri 'none'; form-action 'none'; "
                                    "frame-ancestors 'none'"},
        {"Cross-Origin-Opener-Policy", "same-origin"},
        {"Cross-Origin-Resource-Policy", "same-origin"},
        {"Referrer-Policy", "no-referrer"},
        {"X-Content-Type-Options", "nosniff"},
        {"X-Frame-Options", "DENY"},
    });
    // On one thread: the library logs a request when its answer is written.
    static thread_local bool isAnswering = false;
    m_server->set_logger([this](const Request& /*request*/, const Response& /*response*/) {
        if (!std::exchange(isAnswering, false))
            return;
        const std::lock_guard<std::mutex> lock(m_streamsMutex);
        --m_answers;
        m_streamEnded.notify_all();
    });
    m_server->set_pre_routing_handler([this](const Request& request, Response& response) {
        if (!std::exchange(isAnswering, true)) {
            const std::lock_guard<std::mutex> lock(m_streamsMutex);
            ++m_answers;
        }
        try {
            admit(request);
        } catch (const WebError& error) {
            refuse(response, error);
            return httplib::Server::HandlerResponse::Handled;
        }
        return httplib::Server::HandlerResponse::Unhandled;
    });
    m_server->set_exception_handler([](const Request& /*request*/, Response& response, std::exception_ptr thrown) {
        try {
            std::rethrow_exception(std::move(thrown));
        } catch (const WebError& error) {
            refuse(response, error);
        } catch (const std::exception& error) {
            refuse(response, {500, error.what()});
        } catch (...) {
            refuse(response, {500, "unknown"});
        }
    });
    m_server->set_error_handler([](const Request& request, Response& response) {
        if (response.body.empty() && response.status == 413)
            refuse(response, {413, "too long for a form; send it as Content-Type: text/plain"});
        else if (response.body.empty() && response.status == 404)
            refuse(response, {404, "there is no " + request.path.substr(0, 80)});
        else if (response.body.empty())
            refuse(response, {response.status, "not a request that can be answered"});
    });
}

// Before anything of the body is read, which the library would do without an end.
void WebServer::admit(const Request& request) const
{
    const RequestGuard::Header header = [&request](const char* name) {
        // Two of one name are one too many.
        return request.get_header_value_count(name) > 1 ? std::string("?") : request.get_header_value(name);
    };
    const std::string refusal = m_guard.refuse(request.path, header);
    if (!refusal.empty())
        throw WebError{403, refusal};
    if (request.ranges.size() > 1)
        throw WebError{416, "one range at a time"};
    const bool isPost = request.method == "POST";
    if (isPost ? request.path != commandPath : request.path == commandPath)
        throw WebError{405, isPost ? "this takes no POST" : "a command wants POST"};
    if (!isPost && request.method != "GET" && request.method != "HEAD")
        throw WebError{405, "there are GET and POST"};
    const std::string length = header("Content-Length");
    if (!isPost && ((!length.empty() && length != "0") || request.has_header("Transfer-Encoding")))
        throw WebError{400, "a request for something has no body"};
    if (!isPost)
        return;
    const std::string untold = m_guard.refuseCommand(header);
    if (!untold.empty())
        throw WebError{403, untold};
    const auto size = parseNumber(length, UINT64_MAX);
    if (!size || request.has_header("Transfer-Encoding") || request.has_header("Content-Encoding"))
        throw WebError{411, "a command needs its length, and no encoding"};
    if (*size > longestCommand)
        throw WebError{413, "a command has at most " + std::to_string(longestCommand) + " bytes"};
    if (request.is_multipart_form_data())
        throw WebError{415, "a command is mere text"};
}

void WebServer::addPage()
{
    for (const PageFile& file : getPageFiles()) {
        const auto answer = [&file](const Request& /*request*/, Response& response) {
            response.set_content(file.content.data(), file.content.size(), std::string(file.type));
        };
        std::string pattern = "/";
        for (const char letter : file.name)
            pattern += letter == '.' ? "\\." : std::string(1, letter);
        m_server->Get(pattern, answer);
        if (file.name == "index.html")
            m_server->Get("/", answer);
    }
}

void WebServer::addInterface()
{
    m_server->Get("/api/state", [this](const Request& /*request*/, Response& response) { answerState(response); });
    m_server->Get("/api/events",
                  [this](const Request& request, Response& response) { answerEvents(request, response); });
    m_server->Get("/api/commands", [](const Request& /*request*/, Response& response) {
        response.set_content(WebJson::formatCommands(), json);
    });
    m_server->Post(commandPath,
                   [this](const Request& request, Response& response) { answerCommand(request, response); });
    m_server->Get("/api/script", [this](const Request& /*request*/, Response& response) { answerScript(response); });
    m_server->Get("/api/records",
                  [this](const Request& request, Response& response) { answerRecords(request, response); });
}

void WebServer::addPictures()
{
    m_server->Get(R"(/api/panels/(\d{1,10})/lcds/(\d{1,10})\.(png|txt|gif))",
                  [this](const Request& request, Response& response) { answerPicture(request, response); });
    m_server->Get(R"(/api/panels/(\d{1,10})/lcds/(\d{1,10})/pixel)",
                  [this](const Request& request, Response& response) { answerPixel(request, response); });
}

void WebServer::answerState(Response& response)
{
    m_feed.refresh();
    response.set_content(
        WebJson::format(WebJson::State{m_simulation, m_board.now(), m_board.getPanels(), m_feed.getReadings(),
                                       m_board.getOrders(), m_board.getViolations()}),
        json);
}

// Of a listener, among as many as there may be.
class WebServer::Place {
public:
    explicit Place(WebServer& server) : m_server(server)
    {
        const std::lock_guard<std::mutex> lock(m_server.m_streamsMutex);
        if (m_server.m_streams == maxStreams)
            throw WebError{503, std::to_string(maxStreams) + " others listen, there is no room for more"};
        ++m_server.m_streams;
    }
    ~Place()
    {
        const std::lock_guard<std::mutex> lock(m_server.m_streamsMutex);
        --m_server.m_streams;
        m_server.m_streamEnded.notify_all();
    }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

private:
    WebServer& m_server;
};

void WebServer::answerEvents(const Request& request, Response& response)
{
    allow(request, {"screens", "records"});
    const EventStream::Options options{isWanted(request, "screens"), isWanted(request, "records")};
    const auto place = std::make_shared<Place>(*this);
    if (request.method == "HEAD") {
        response.set_header("Content-Type", "text/event-stream");
        return;
    }
    const auto stream = std::make_shared<EventStream>(m_board, m_feed, m_simulation, options);
    response.set_chunked_content_provider(
        "text/event-stream", [place, stream](std::size_t /*offset*/, httplib::DataSink& sink) {
            try {
                std::string events = stream->next(heartbeat);
                if (events.empty())
                    events = ": nothing new\n\n"; // or nobody would notice that the listener has gone
                const bool isThere = sink.write(events.data(), events.size());
                if (stream->hasEnded())
                    sink.done();
                return isThere;
            } catch (const std::exception&) {
                return false; // it may come back
            }
        });
}

void WebServer::answerCommand(const Request& request, Response& response)
{
    std::string line = request.body;
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
        line.pop_back();
    if (line.find('\n') != std::string::npos)
        throw WebError{400, "one command at a time"};
    const std::size_t begin = line.find_first_not_of(" \t");
    if (begin == std::string::npos || line[begin] == '#')
        throw WebError{400, "expected a command"};
    const std::lock_guard<std::mutex> lock(m_commandMutex);
    const std::string complaint = m_isOver ? "the simulation has ended" : m_execute(line);
    if (!complaint.empty())
        throw WebError{409, complaint};
    response.set_content("{\"done\":true}", json);
}

void WebServer::answerScript(Response& response) const
{
    const std::vector<PanelBoard::Line> orders = m_board.getOrders();
    std::string script;
    if (!orders.empty() && orders.front().number != 0)
        script = "# without the first " + std::to_string(orders.front().number) + " commands, which are forgotten\n";
    for (const PanelBoard::Line& order : orders)
        script += formatSeconds(order.time) + " " + order.text + "\n";
    response.set_content(script, text);
}

void WebServer::answerRecords(const Request& request, Response& response) const
{
    allow(request, {"panel", "type", "way"});
    const auto panel = findParameter(request, "panel", UINT8_MAX);
    const auto type = findParameter(request, "type", UINT8_MAX);
    const std::string way = request.get_param_value("way");
    if (!way.empty() && way != "out" && way != "in")
        throw WebError{400, "way: expected out or in"};
    std::string lines;
    for (const PanelBoard::Record& record : m_board.getRecords(0, RecordRing::capacity).records) {
        const RecordRing::Entry& entry = record.entry;
        const bool isOfWay = way.empty() || (way == "out") == (entry.way == RecordRing::Way::Out);
        if (isOfWay && panel.value_or(entry.panel) == entry.panel && type.value_or(entry.type) == entry.type)
            lines += WebJson::format(record) + "\n";
    }
    response.set_content(lines, "application/x-ndjson");
}

PanelScreen WebServer::takePicture(const Request& request)
{
    const ScreenFeed::Place place = placeOf(request);
    m_feed.refresh();
    auto picture = m_feed.getPicture(place);
    if (!picture)
        throw noSuchLcd(place, m_board);
    return std::move(*picture);
}

void WebServer::answerPixel(const Request& request, Response& response)
{
    allow(request, {"x", "y"});
    const PanelScreen picture = takePicture(request);
    const ScreenFeed::Place place = placeOf(request);
    if (!request.has_param("x") || !request.has_param("y"))
        throw WebError{400, "expected x and y"};
    const unsigned int x = *findParameter(request, "x", picture.getWidth() - 1);
    const unsigned int y = *findParameter(request, "y", picture.getHeight() - 1);
    response.set_content(
        WebJson::formatPixel(picture.getPixel(x, y), m_board.findSlice(place.first, place.second, x, y)), json);
}

void WebServer::answerPicture(const Request& request, Response& response)
{
    std::vector<std::string> names;
    if (request.matches[3] != "gif")
        names = {"x", "y", "width", "height"};
    if (request.matches[3] != "txt")
        names.emplace_back("zoom");
    allow(request, names);
    const PanelScreen picture = takePicture(request);
    const unsigned int zoom = zoomOf(request);
    if (request.matches[3] == "png") {
        response.set_content(asText(PngEncoder::encode(crop(request, picture), zoom)), "image/png");
    } else if (request.matches[3] == "txt") {
        response.set_content(PixelText::render(crop(request, picture)), text);
    } else {
        const auto animation = m_feed.getAnimation(placeOf(request));
        if (!animation)
            throw noSuchLcd(placeOf(request), m_board);
        const std::lock_guard<std::mutex> lock(m_gifMutex);
        response.set_content(asText(GifEncoder::encode(framesOf(*animation), zoom)), "image/gif");
    }
}

} // namespace Vantor
