// A progress bar on standard error, for a person who waits: none when it is no terminal, and none
// for what is done in no time.
//
// Threads: used by one thread.
#ifndef WREN_PROGRESS_H
#define WREN_PROGRESS_H

#include <chrono>
#include <cstddef>
#include <string>

namespace wren {

class ProgressBar {
   public:
    // total is the number of words to come.
    ProgressBar(std::string label, std::size_t total);
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;
    // Wipes the bar, so that a report or an error starts on a clean line.
    ~ProgressBar();

    // Shows how many words are done, how fast, and how long it will take yet.
    void update(std::size_t done);

   private:
    using Clock = std::chrono::steady_clock;

    std::string label_;
    std::size_t total_;
    Clock::time_point start_ = Clock::now();
    bool watched_;
    bool shown_ = false;
};

}  // namespace wren

#endif
