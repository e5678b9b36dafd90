// Where it is told what the tool does step by step, and where a stream's debug text goes: to
// standard error, and into a file.
//
// Threads: tell(), step(), take() and note() may be called from any, the rest by the main thread.
#ifndef WREN_DEBUG_TEXT_H
#define WREN_DEBUG_TEXT_H

#include <atomic>
#include <string>
#include <string_view>

#include "files.h"

namespace wren {

class DebugText {
   public:
    // From now on 1 shows the steps, 2 all of the library's text, too, and 0 its warnings alone.
    void show(int verbosity) noexcept { verbosity_ = verbosity; }
    // From now on all of it is added to a file, a line each, with the time in front.
    void logTo(const std::string& path);

    // Tells the user, and the file.
    void tell(std::string_view line);
    // Tells of a step.
    void step(std::string_view line) { verbosity_ > 0 ? tell(line) : note(line); }
    // Takes a text of the library; the mark tells whose it is.
    void take(const std::string& mark, std::string_view text);
    // Adds a line to the file alone.
    void note(std::string_view line);
    // Throws when the file did not take all of it.
    void finish();

   private:
    int verbosity_ = 0;
    std::string path_;
    LineFile file_;
    std::atomic<bool> isComplete_{true};
};

// One line: the operating system's texts may hold line breaks.
std::string flattened(std::string_view text);

}  // namespace wren

#endif
