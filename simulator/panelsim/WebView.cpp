#include "simulator/panelsim/WebView.h"

#include "simulator/web/PanelBoard.h"
#include "simulator/web/WebAddress.h"
#include "simulator/web/WebServer.h"

#include <stdexcept>

namespace Vantor {

namespace {

WebAddress parse(const std::string& text)
{
    const ParsedWebAddress parsed = parseWebAddress(text);
    if (!parsed.error.empty())
        throw std::runtime_error("--web: " + parsed.error);
    return parsed.address;
}

class PageServer : public WebView::Server {
public:
    PageServer(PanelBoard& board, const WebAddress& address, const WebView::UseBus& useBus,
               const WebView::Execute& execute)
        : m_server(board, address, useBus, execute)
    {}

    std::string getUrl() const override { return m_server.getUrl(); }
    std::string getNetworkUrl() const override { return m_server.getNetworkUrl(); }
    void start() override { m_server.start(); }
    void end() override { m_server.end(); }

private:
    WebServer m_server;
};

} // namespace

struct WebView::Parts {
    WebAddress address;
    PanelBoard board;
};

WebView::WebView(const std::string& address) : m_parts(new Parts{parse(address), {}}) {}

WebView::~WebView() = default;

BusWatcher& WebView::getWatcher()
{
    return m_parts->board;
}

void WebView::begin()
{
    m_parts->board.begin();
}

std::unique_ptr<WebView::Server> WebView::open(const UseBus& useBus, const Execute& execute)
{
    return std::make_unique<PageServer>(m_parts->board, m_parts->address, useBus, execute);
}

} // namespace Vantor
