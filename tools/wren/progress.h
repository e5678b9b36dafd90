// A progress bar on standard error, for a person who waits: none when it is no terminal.
//
// Threads: used by one thread.
#ifndef WREN_PROGRESS_H
#define WREN_PROGRESS_H

#include <cstddef>
#include <string>

namespace wren {

class ProgressBar {
   public:
    // total is the number of words to come, above 0.
    ProgressBar(std::string label, std::size_t total);
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;
    // Wipes the bar, so that a report or an error starts on a clean line.
    ~ProgressBar();

    void update(std::size_t done);

   private:
    std::string label_;
    std::size_t total_;
    bool shown_;
};

}  // namespace wren

#endif
