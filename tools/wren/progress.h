// How far a transfer is, told on standard error while it goes on.
//
// Threads: used by one thread.
#ifndef WREN_PROGRESS_H
#define WREN_PROGRESS_H

#include <chrono>
#include <cstddef>

namespace wren {

struct Adapter;

enum class ProgressForm {
    bar,    // for a person who waits: none off a terminal, and none for what is done in no time
    lines,  // one a second, and one at the end
    json,   // an object on each line, four a second, and one at the end
    none,
};

class Progress {
   public:
    // Of total words, in the form that the adapter's context asks for.
    Progress(Adapter& adapter, const char* doing, std::size_t total);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    // Wipes the bar.
    ~Progress();

    // Tells how many words are done, how fast, and how long it will take yet.
    void update(std::size_t done);

   private:
    using Clock = std::chrono::steady_clock;
    using Seconds = std::chrono::duration<double>;

    void show(std::size_t done, double rate, double left);

    Adapter& adapter_;
    const char* doing_;
    std::size_t total_;
    Clock::time_point start_ = Clock::now();
    Clock::time_point told_ = start_;
};

}  // namespace wren

#endif
