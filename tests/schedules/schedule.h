// Every schedule of a few hosts: every order of their steps that takes no more preemptions than
// wanted, and at every step also the death of the host that stands there.
//
// Hosts are threads, of which one goes on at a time. Each reaches its steps one by one, and there
// the walk decides: the host takes the step, or another host goes on first, or the host dies. What
// hosts do must depend on nothing else, so that the same choices lead to the same place.
//
// To what the hosts run on, and so to all others, the dead have ended where they stand, as when a
// process is killed. When all is over and has been looked at they go on to their ends after all,
// unnoticed, so that their memory is given back.
#ifndef WRENLINK_TESTS_SCHEDULES_SCHEDULE_H
#define WRENLINK_TESTS_SCHEDULES_SCHEDULE_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace wrenlink::test {

inline constexpr std::size_t kMostHosts = 3;

// The life of a host in one schedule. Outside schedules there is none, and nobody is alive.
using Life = unsigned;
inline constexpr Life kNoLife = 0;
// The calling thread's; outside schedules it may be lent a host's.
Life& ownLife();
bool isAlive(Life life);

// ---- For what hosts run on. Outside schedules all goes on. ----

// The calling host is about to take a step, which concerns something of this name.
void reach(const char* step, std::string_view name = "");
// Lets others go on until nobody alive holds.
void awaitFree(const Life& holder);
// Something is wrong with the present schedule; its first problem is kept.
void complain(const std::string& problem);

// ---- The walk ----

struct Rules {
    std::size_t hosts;
    unsigned preemptions;  // at most
    unsigned deaths;
    void (*check)();  // made at every step
};
void startWalk(const Rules& rules);
// Begins the present schedule, at first the one without preemptions and deaths. Each host lives,
// and has its life. Steps are printed if wanted.
std::vector<Life> beginSchedule(bool printed);
// Runs a body in each host until all have ended or died, or wait for ever.
void runHosts(const std::vector<std::function<void()>>& bodies);
// What came of it.
bool hasDied();
const std::string& firstProblem();
void layDeadToRest();
// Turns to the next schedule; false after the last.
bool turnToNext();

}  // namespace wrenlink::test

#endif
