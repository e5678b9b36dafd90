#include "sim/posix/server.h"

#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/signalfd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>

namespace quillsim {
namespace {

// A capture that cannot go on, on a pipe that nobody reads or beyond a limit, must not end the
// server.
void ignoreFileSignals() {
    ::signal(SIGPIPE, SIG_IGN);
    ::signal(SIGXFSZ, SIG_IGN);
}

FileDescriptor catchEndSignals() {
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGTERM);
    ::sigaddset(&signals, SIGINT);
    ::sigprocmask(SIG_BLOCK, &signals, nullptr);
    FileDescriptor fd(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!fd) throw std::system_error(errno, std::generic_category(), "signalfd");
    return fd;
}

std::optional<CaptureFile> openCapture(const std::string& path) {
    if (path.empty()) return std::nullopt;
    return std::optional<CaptureFile>(std::in_place, path);
}

// Each host that has an adapter open takes a descriptor.
void raiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

void loadMemory(const std::string& file, Adapter& adapter) {
    std::ifstream in(file, std::ios::binary);
    std::uint32_t address = 0;
    std::array<char, 2> pair{};
    while (in.read(pair.data(), pair.size())) {
        if (address == kMemoryWords) throw std::runtime_error(file + ": more than 65536 words");
        const auto low = static_cast<std::uint8_t>(pair[0]);
        const auto high = static_cast<std::uint8_t>(pair[1]);
        adapter.setWord(address++, static_cast<std::uint16_t>(high << 8 | low));
    }
    if (!in.eof()) throw std::runtime_error(file + ": cannot be read");
    if (in.gcount() != 0) throw std::runtime_error(file + ": ends inside a word");
}

std::unique_ptr<Adapter> makeAdapter(const AdapterOptions& options) {
    auto adapter = std::make_unique<Adapter>(options.id, EINVAL);
    adapter->settings.firmware = options.firmware;
    adapter->settings.xap = options.xapStopped ? 1 : 0;
    adapter->settings.answerMicroseconds = options.answerMicroseconds;
    if (!options.memoryFile.empty()) loadMemory(options.memoryFile, *adapter);
    return adapter;
}

}  // namespace

Server::Server(const ServerOptions& options)
    : capture_(openCapture(options.captureFile)),
      directory_(options.runtimeDirectory, options.access),
      signals_(catchEndSignals()) {
    raiseDescriptorLimit();
    ignoreFileSignals();
    loop_.watch(signals_.get(), EPOLLIN, [this](std::uint32_t) { loop_.stop(); });
    if (!options.logFile.empty()) {
        log_.open(options.logFile, std::ios::app);
        if (!log_) throw std::runtime_error(options.logFile + ": cannot be written");
    }
    const FileDescriptor startLock = directory_.lock();
    control_ = std::make_unique<ControlPort>(loop_, directory_, bench_);
    // Only now is it sure that no other server, whose capture this may be, serves the directory.
    if (capture_) capture_->start();
    for (const AdapterOptions& adapter : options.adapters) addAdapter(adapter);
    bench_ = Bench{benchAdapters_, &Server::plug, &Server::letOpen, this};

    directory_.removeStaleAdapters();
    for (const auto& port : ports_) port->plug();
}

void Server::addAdapter(const AdapterOptions& options) {
    adapters_.push_back(makeAdapter(options));
    Adapter& adapter = *adapters_.back();
    benchAdapters_.push_back(&adapter);
    CapturePoint capture;
    if (capture_) {
        const std::string description = "Quill adapter, id " + std::to_string(options.id);
        capture = {&*capture_, capture_->addInterface(options.name, description)};
    }
    ports_.push_back(std::make_unique<AdapterPort>(loop_, directory_, options.name, adapter,
                                                   log_.is_open() ? &log_ : nullptr, capture));
}

bool Server::plug(void* context, std::size_t adapter, bool plugged) {
    AdapterPort& port = *static_cast<Server*>(context)->ports_[adapter];
    try {
        plugged ? port.plug() : port.unplug();
        return true;
    } catch (const std::system_error&) {
        return false;
    }
}

bool Server::letOpen(void* context, std::size_t adapter, bool openable) {
    try {
        static_cast<Server*>(context)->ports_[adapter]->letOpen(openable);
        return true;
    } catch (const std::system_error&) {
        return false;
    }
}

}  // namespace quillsim
