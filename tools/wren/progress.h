// A progress bar on standard error, for a person who waits: none when it is no terminal, and none
// for what is done in no time.
//
// Threads: used by one thread.
#ifndef WREN_PROGRESS_H
#define WREN_PROGRESS_H

#include <chrono>
#include <cstddef>
#include <string>

#include "terminal.h"

namespace wren {

class ProgressBar {
   public:
    // total is the number of words to come.
    ProgressBar(terminal::StatusLine& line, std::string label, std::size_t total);
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;
    // Wipes the bar.
    ~ProgressBar() { line_.show(""); }

    // Shows how many words are done, how fast, and how long it will take yet.
    void update(std::size_t done);

   private:
    using Clock = std::chrono::steady_clock;

    terminal::StatusLine& line_;
    std::string label_;
    std::size_t total_;
    Clock::time_point start_ = Clock::now();
};

}  // namespace wren

#endif
