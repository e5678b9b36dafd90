#include "sim/posix/server.h"

#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/syscall.h>

#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

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

// Padded so that the names sort like the numbers.
std::string socketName(std::size_t adapter, std::size_t adapters) {
    const std::string number = std::to_string(adapter);
    const std::size_t width = std::to_string(adapters - 1).size();
    return "quill" + std::string(width - number.size(), '0') + number;
}

}  // namespace

Server::Server(ServerOptions options)
    : capture_(openCapture(options.captureFile)),
      directory_(options.runtimeDirectory, options.access),
      signals_(catchEndSignals()),
      adapters_(std::move(options.adapters)) {
    raiseDescriptorLimit();
    ignoreFileSignals();
    const FileDescriptor startLock = directory_.lock();
    control_ = std::make_unique<ControlPort>(loop_, directory_, bench_);
    // Only now is it sure that no other server, whose capture this may be, serves the directory.
    if (capture_) capture_->start();
    for (const auto& adapter : adapters_) addPort(*adapter);
    bench_ = Bench{benchAdapters_, &Server::plug, this};

    directory_.removeStaleAdapters();
    for (const auto& port : ports_) port->plug();
}

bool Server::run(pid_t program) {
    loop_.watch(signals_.get(), EPOLLIN, [this, program](std::uint32_t) {
        signalfd_siginfo told{};
        const bool isTold = ::read(signals_.get(), &told, sizeof told) == sizeof told;
        if (program == 0) return loop_.stop();
        // A terminal sends its own to the program, too.
        if (isTold && told.ssi_code <= 0) ::kill(program, static_cast<int>(told.ssi_signo));
    });
    FileDescriptor ended;
    if (program != 0) {
        ended = FileDescriptor(static_cast<int>(::syscall(SYS_pidfd_open, program, 0)));
        loop_.watch(ended.get(), EPOLLIN, [this](std::uint32_t) { loop_.stop(); });
    }
    loop_.run();
    return !capture_ || capture_->isWhole();
}

void Server::addPort(Adapter& adapter) {
    const std::string name = socketName(ports_.size(), adapters_.size());
    benchAdapters_.push_back(&adapter);
    CapturePoint capture;
    if (capture_) {
        const std::string description = "Quill adapter, id " + std::to_string(adapter.settings.id);
        capture = {&*capture_, capture_->addInterface(name, description)};
    }
    ports_.push_back(std::make_unique<AdapterPort>(loop_, directory_, name, adapter, capture));
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

}  // namespace quillsim
