#include "sim/windows/control_client.h"

#include <windows.h>

#include <stdexcept>
#include <system_error>

#include "sim/windows/control_protocol.h"

namespace quillsim {

ControlClient::ControlClient()
    : device_(::CreateFileA(kControlPath, GENERIC_READ | GENERIC_WRITE,
                            FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                            nullptr)),
      answer_(65536) {}

ControlClient::~ControlClient() {
    if (isOpen()) ::CloseHandle(device_);
}

bool ControlClient::isOpen() const { return device_ != INVALID_HANDLE_VALUE; }

std::string ControlClient::run(std::string_view line) {
    DWORD size = 0;
    while (!::DeviceIoControl(device_, kControlRequest, const_cast<char*>(line.data()),
                              static_cast<DWORD>(line.size()), answer_.data(),
                              static_cast<DWORD>(answer_.size()), &size, nullptr)) {
        const DWORD error = ::GetLastError();
        if (error != ERROR_MORE_DATA) {
            throw std::system_error(static_cast<int>(error), std::system_category(), "control");
        }
        answer_.resize(4 * answer_.size());
    }
    const std::string_view text(answer_.data(), size);
    const std::size_t before = size < 2 ? 0 : text.rfind('\n', size - 2) + 1;  // npos + 1 is 0
    const std::string_view outcome = text.substr(before);
    if (outcome != "ok\n")
        throw std::runtime_error(std::string(outcome.substr(0, outcome.find('\n'))));
    return std::string(text.substr(0, before));
}

std::size_t ControlClient::offered() {
    constexpr std::string_view kPlugged = " plugged=1 ";
    const std::string states = run("list");
    std::size_t count = 0;
    for (auto at = states.find(kPlugged); at != std::string::npos;
         at = states.find(kPlugged, at + 1))
        ++count;
    return count;
}

}  // namespace quillsim
