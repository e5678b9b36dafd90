// Ways to do one job, measured in turn: what else the machine does strikes all of them alike.
#ifndef WRENLINK_BENCH_TURNS_H
#define WRENLINK_BENCH_TURNS_H

#include <functional>
#include <vector>

namespace wrenlink::bench {

struct Way {
    const char* name;
    std::function<void()> job;
    // Of one job, in nanoseconds. Processor time is that of the whole process, in user and in
    // system mode; on Windows it is the clock's.
    double clock = 0;
    double processor = 0;
};

class Turns {
   public:
    // A turn is so many jobs, and should take some milliseconds.
    Turns(unsigned jobs, std::vector<Way> ways) : jobs_(jobs), ways_(std::move(ways)) {}

    // Each way takes two turns, the last one first in the second half.
    void round();
    // What the rounds so far came to.
    std::vector<Way> results() const;

   private:
    void take(Way& way) const;

    const unsigned jobs_;
    std::vector<Way> ways_;
    unsigned rounds_ = 0;
};

}  // namespace wrenlink::bench

#endif
