#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include "runtime_folder_posix.h"
#include "system.h"

namespace wren::system {

namespace {

// Of a folder that is closed to this user.
std::string whoMayUse(const std::string& folder) {
    struct stat status {};
    if (::stat(folder.c_str(), &status) != 0) return "ask for access to the folders above it";
    const group* const members = ::getgrgid(status.st_gid);
    const std::string name = members != nullptr ? members->gr_name : std::to_string(status.st_gid);
    if ((status.st_mode & S_IXGRP) == 0) return "ask its owner to let a group in";
    return "the group '" + name + "' may use it: join it and log in anew";
}

}  // namespace

std::vector<std::string> arguments(int argc, char** argv) {
    return {argv + (argc > 0 ? 1 : 0), argv + argc};
}

void prepareStandardStreams() noexcept {
    std::signal(SIGPIPE, SIG_IGN);
    // Opened for reading, so that writing still fails.
    int opened = 0;
    while (opened >= 0 && opened <= STDERR_FILENO) opened = ::open("/dev/null", O_RDONLY);
    if (opened > STDERR_FILENO) ::close(opened);
}

SignalHandler setSignalHandler(int signal, SignalHandler handler) noexcept {
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = handler;
    ::sigaction(signal, &action, &before);
    return before.sa_handler;
}

std::FILE* openFile(const std::filesystem::path& path, const char* mode) noexcept {
    return std::fopen(path.c_str(), mode);
}

bool isDevice(const std::filesystem::path& path) {
    std::error_code ignored;
    return std::filesystem::is_other(path, ignored);
}

// Replaces this process, so that whoever started it sees no other.
int runAgainWith(const char* variable, const char* value, char** argv,
                 std::vector<std::string> words) {
    const char* const present = ::getenv(variable);
    if (present != nullptr && std::strcmp(present, value) == 0) return -1;
    ::setenv(variable, value, 1);
    words.push_back(std::filesystem::read_symlink("/proc/self/exe"));
    std::vector<char*> all;
    for (std::string& word : words) all.push_back(word.data());
    while (*argv != nullptr) all.push_back(*++argv);
    ::execvp(all[0], all.data());
    throw std::system_error(errno, std::generic_category(), "starting anew");
}

std::string userConfiguration() {
    const auto folder = [](const char* variable) {
        const char* const named = ::getenv(variable);
        return std::string(named != nullptr ? named : "");
    };
    const std::string configurations = folder("XDG_CONFIG_HOME");
    return (configurations.empty() ? folder("HOME") + "/.config" : configurations) +
           "/wrenlink/wren.toml";
}

std::string inUtf8(const std::string& text) { return text; }

std::string runtimeFolder() {
    const char* const named = ::getenv("WRENLINK_RUNTIME_DIR");
    return named != nullptr && *named != '\0' ? named : "/run/wrenlink";
}

std::string wayToExchanges(const std::string& port, bool own) {
    if (own) return "--capture FILE shows Wireshark the exchanges";
    if (::access((runtimeFolder() + "/quillsim.control").c_str(), F_OK) != 0) return "";
    return "'quillsim --control \"log " + port + "\"' shows the exchanges";
}

std::string whyNoAdapters() {
    const std::string folder = runtimeFolder();
    const std::string adapters = folder + "/adapters";
    if (folder.front() != '/') return "WRENLINK_RUNTIME_DIR must be an absolute path";
    DIR* const listing = ::opendir(adapters.c_str());
    const int error = errno;
    if (listing != nullptr) {
        ::closedir(listing);
        return "'" + adapters + "' offers none: plug one in, or try --simulate";
    }
    const std::string remedy =
        error == EACCES ? whoMayUse(folder) : "start the service that offers adapters";
    return "cannot look into '" + adapters + "': " + std::generic_category().message(error) + "; " +
           remedy + ", or try --simulate";
}

}  // namespace wren::system
