#include "bench/bare_file_posix.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace wrenlink::bench {

BareFile::BareFile() {
    const char* directory = std::getenv("WRENLINK_RUNTIME_DIR");
    path_ = directory == nullptr ? "/run/wrenlink" : directory;
    path_ += "/objects/bench-" + std::to_string(::getpid());
    const int file = ::open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0) {
        std::perror(path_.c_str());
        std::exit(1);
    }
    ::close(file);
}

BareFile::~BareFile() { ::unlink(path_.c_str()); }

bool BareFile::openAndClose() {
    const int file = ::open(path_.c_str(), O_RDWR | O_CLOEXEC);
    return file >= 0 && ::close(file) == 0;
}

}  // namespace wrenlink::bench
