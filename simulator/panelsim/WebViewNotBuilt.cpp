#include "simulator/panelsim/WebView.h"

#include <stdexcept>

namespace Vantor {

struct WebView::Parts {};

WebView::WebView(const std::string& /*address*/)
{
    throw std::runtime_error("--web: this panelsim was built without the page (MORVANE_WEB)");
}

WebView::~WebView() = default;

BusWatcher& WebView::getWatcher()
{
    throw std::logic_error("no page");
}

void WebView::begin() {}

std::unique_ptr<WebView::Server> WebView::open(const UseBus& /*useBus*/, const Execute& /*execute*/)
{
    return nullptr;
}

} // namespace Vantor
