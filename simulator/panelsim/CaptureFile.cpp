#include "simulator/panelsim/CaptureFile.h"

#include "simulator/bus/UserText.h"
#include "simulator/panelsim/OutputFile.h"

#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <utility>

namespace Vantor {

namespace {

std::string captureFailure(const std::string& path, const std::string& cause)
{
    return "cannot write the capture to '" + UserText::shown(path) + "': " + cause;
}

CaptureWriter openCapture(const std::string& path)
{
    try {
        return CaptureWriter(OutputFile::open(path));
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(captureFailure(path, error.what()));
    }
}

} // namespace

CaptureFile::CaptureFile(const std::string& path, Complain complain)
    : m_path(path), m_complain(std::move(complain)), m_writer(openCapture(path))
{}

void CaptureFile::write(CapturedUrb urb)
{
    if (m_hasFailed)
        return;
    urb.time = std::chrono::system_clock::now().time_since_epoch();
    try {
        m_writer.write(urb);
    } catch (const std::runtime_error& error) {
        m_hasFailed = true;
        m_complain(captureFailure(m_path, error.what()));
    }
}

} // namespace Vantor
