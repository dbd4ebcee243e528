#pragma once

#include "simulator/bus/BusWatcher.h"
#include "simulator/bus/PanelBus.h"

#include <functional>
#include <memory>
#include <string>

namespace Vantor {

// The page that shows a simulation, when its user wants one.
//
// Threads: one at a time. Lifetime: must outlive the bus that it watches.
class WebView {
public:
    // Does something with the bus, from any thread; false when there is none any more.
    using UseBus = std::function<bool(const std::function<void(PanelBus&)>& use)>;
    // As WebServer has it.
    using Execute = std::function<std::string(const std::string& line)>;

    // As long as it lives, the page is served. The bus must outlive it.
    class Server {
    public:
        Server() = default;
        virtual ~Server() = default;
        Server(const Server&) = delete;
        Server& operator=(const Server&) = delete;

        // Where to find it, with the token for commands.
        virtual std::string getUrl() const = 0;
        virtual std::string getNetworkUrl() const = 0; // empty without one of its own

        // Nobody is answered before that. Programs that are started later may inherit connections.
        virtual void start() = 0;

        // Tells those who look what there is now, and that there will be no more.
        virtual void end() = 0;
    };

    // `address` as parseWebAddress takes it. Throws std::runtime_error for one that is none, and
    // where the program was built without the page.
    explicit WebView(const std::string& address);
    ~WebView();
    WebView(const WebView&) = delete;
    WebView& operator=(const WebView&) = delete;

    BusWatcher& getWatcher();

    // Time is counted from now on.
    void begin();

    // Throws std::runtime_error when there it can't be served.
    std::unique_ptr<Server> open(const UseBus& useBus, const Execute& execute);

private:
    struct Parts;
    const std::unique_ptr<Parts> m_parts;
};

} // namespace Vantor
