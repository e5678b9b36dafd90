#include "diag/tidewater/log.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "diag/message_handler.h"
#include "diag/tidewater/tidewater_os.h"

namespace tidewater {
namespace {

// Holds kNoFile before the log is opened and after it is closed, so it may be read at any time.
constinit std::atomic<os::LogFile> logFile{os::kNoFile};
// The threads that are writing to it: one that still does when the process exits keeps it open, or
// its line could go to a file that gets its number.
constinit std::atomic<unsigned> writers{0};

class LogLife {
   public:
    LogLife() noexcept {
        const os::ErrorKeeper keeper;
        wrenlink::isTraced = false;
        const char* target = os::environment("TIDEWATER_LOG");
        if (target == nullptr || *target == '\0') return;
        ownsFile_ = std::strcmp(target, "stderr") != 0;
        logFile = ownsFile_ ? os::openForAppending(target) : os::standardError();
        wrenlink::isTraced = logFile != os::kNoFile;
    }
    LogLife(const LogLife&) = delete;
    LogLife& operator=(const LogLife&) = delete;
    ~LogLife() {
        const os::ErrorKeeper keeper;
        const os::LogFile file = logFile.exchange(os::kNoFile);
        if (ownsFile_ && file != os::kNoFile && writers == 0) os::close(file);
    }

   private:
    bool ownsFile_ = false;
};

// The first priority that is not the compiler's own: traces of other static objects find the log.
[[gnu::init_priority(101)]] const LogLife logLife;

class LineBuffer {
   public:
    void add(const char* format, ...) noexcept __attribute__((format(printf, 2, 3))) {
        std::va_list arguments;
        va_start(arguments, format);
        addList(format, arguments);
        va_end(arguments);
    }
    void addList(const char* format, std::va_list arguments) noexcept
        __attribute__((format(printf, 2, 0))) {
        const std::size_t room = kLineLimit - 1 - used_;
        const int length = std::vsnprintf(bytes_.data() + used_, room + 1, format, arguments);
        used_ += static_cast<std::size_t>(std::clamp(length, 0, static_cast<int>(room)));
    }
    void writeTo(os::LogFile file) noexcept {
        std::replace_if(bytes_.begin(), bytes_.begin() + used_, isControl, ' ');
        bytes_[used_] = '\n';
        os::write(file, bytes_.data(), used_ + 1);
    }

   private:
    static bool isControl(char byte) {
        return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F;
    }

    std::array<char, kLineLimit> bytes_;
    std::size_t used_ = 0;
};

void addTime(LineBuffer& line) noexcept {
    using namespace std::chrono;
    const auto now = floor<microseconds>(system_clock::now());
    const auto today = floor<days>(now);
    const year_month_day date{today};
    const hh_mm_ss time{now - today};
    line.add("%04d-%02u-%02uT%02ld:%02ld:%02ld.%06ldZ", static_cast<int>(date.year()),
             static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
             static_cast<long>(time.hours().count()), static_cast<long>(time.minutes().count()),
             static_cast<long>(time.seconds().count()),
             static_cast<long>(time.subseconds().count()));
}

}  // namespace

void writeLine(const Place& place, const char* format, ...) noexcept {
    std::va_list arguments;
    va_start(arguments, format);
    writeLineList(place, format, arguments);
    va_end(arguments);
}

void writeLineList(const Place& place, const char* format, std::va_list arguments) noexcept {
    ++writers;
    const os::LogFile file = logFile;
    if (file != os::kNoFile) {
        const os::ErrorKeeper keeper;
        LineBuffer line;
        addTime(line);
        line.add(" %lu %lu %s %s:%lu ", os::processId(), os::threadId(), place.function, place.file,
                 place.line);
        line.addList(format, arguments);
        line.writeTo(file);
    }
    --writers;
}

}  // namespace tidewater
