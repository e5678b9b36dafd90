#include "tests/schedules/schedule.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <semaphore>
#include <thread>

namespace wrenlink::test {

namespace {

struct Host {
    Life life = kNoLife;
    bool hasEnded = true;
    const Life* waitsFor = nullptr;  // a holder
    std::function<void()> body;
    std::binary_semaphore turn{0};
};

// A decision: what it takes, of so many possibilities.
struct Choice {
    std::size_t taken;
    std::size_t options;
};

// The present schedule, and how far it has come.
struct Schedule {
    Rules rules{};
    bool isPrinted = false;
    bool isRunning = false;
    std::vector<Choice> choices;
    std::size_t made = 0;  // choices so far
    unsigned preemptions = 0;
    unsigned deaths = 0;
    std::string problem;
    std::array<Host, kMostHosts> hosts;
    std::binary_semaphore isOver{0};
};

// For good, as the threads of the hosts are.
Schedule& present = *new Schedule;
constinit std::array<Life, kMostHosts> living{};
Life latestLife = kNoLife;
thread_local constinit Life threadLife = kNoLife;
thread_local constinit Host* own = nullptr;

std::size_t choose(std::size_t options) {
    if (present.made == present.choices.size()) present.choices.push_back({0, options});
    const Choice& choice = present.choices[present.made++];
    if (choice.options != options) complain("the same choices led to another place");
    return choice.taken;
}

bool goesOn(const Host& host) { return !host.hasEnded && isAlive(host.life); }

std::vector<Host*> readyHosts() {
    std::vector<Host*> all;
    for (Host& host : present.hosts)
        if (goesOn(host) && (host.waitsFor == nullptr || !isAlive(*host.waitsFor)))
            all.push_back(&host);
    return all;
}

// The calling host cannot go on: it is another one's turn.
void passOn() {
    const std::vector<Host*> ready = readyHosts();
    if (!ready.empty()) return ready[choose(ready.size())]->turn.release();
    if (std::ranges::any_of(present.hosts, goesOn)) {
        complain("the hosts wait for ever");
        living = {};
    }
    present.isOver.release();
}

void die(Host& host) {
    ++present.deaths;
    std::ranges::replace(living, host.life, kNoLife);
    present.rules.check();
    passOn();
    host.turn.acquire();
}

void runThread(Host& host) {
    own = &host;
    for (;;) {
        host.turn.acquire();
        threadLife = host.life;
        host.body();
        host.hasEnded = true;
        if (present.isRunning) {
            present.rules.check();
            passOn();
        } else {
            present.isOver.release();
        }
    }
}

}  // namespace

Life& ownLife() { return threadLife; }

bool isAlive(Life life) { return life != kNoLife && std::ranges::count(living, life) != 0; }

void reach(const char* step, std::string_view name) {
    if (!present.isRunning) return;
    present.rules.check();
    std::vector<Host*> options = {own};
    if (present.preemptions < present.rules.preemptions)
        for (Host* const other : readyHosts())
            if (other != own) options.push_back(other);
    if (present.deaths < present.rules.deaths) options.push_back(nullptr);  // it dies
    Host* const chosen = options[choose(options.size())];
    if (chosen != nullptr && chosen != own) {
        ++present.preemptions;
        chosen->turn.release();
        own->turn.acquire();
    }
    if (present.isPrinted)
        std::cout << "    host " << own - present.hosts.data() + 1
                  << (chosen == nullptr ? " dies before: " : ": ") << step << ' ' << name << '\n';
    if (chosen == nullptr) die(*own);
}

void awaitFree(const Life& holder) {
    while (present.isRunning && isAlive(holder)) {
        own->waitsFor = &holder;
        passOn();
        own->turn.acquire();
        own->waitsFor = nullptr;
    }
}

void complain(const std::string& problem) {
    const bool isDead = own != nullptr && !present.isRunning;
    if (present.problem.empty() && !isDead) present.problem = problem;
}

void startWalk(const Rules& rules) {
    if (latestLife == kNoLife)
        for (Host& host : present.hosts) std::thread(runThread, std::ref(host)).detach();
    present.rules = rules;
    present.choices.clear();
}

std::vector<Life> beginSchedule(bool printed) {
    present.isPrinted = printed;
    present.made = present.preemptions = present.deaths = 0;
    present.problem.clear();
    living = {};
    for (std::size_t i = 0; i < present.rules.hosts; ++i)
        living[i] = present.hosts[i].life = ++latestLife;
    return {living.begin(), living.begin() + present.rules.hosts};
}

void runHosts(const std::vector<std::function<void()>>& bodies) {
    for (std::size_t i = 0; i < bodies.size(); ++i) {
        present.hosts[i].body = bodies[i];
        present.hosts[i].hasEnded = false;
    }
    present.isRunning = true;
    passOn();
    present.isOver.acquire();
    present.isRunning = false;
}

void layDeadToRest() {
    for (Host& host : present.hosts)
        if (!host.hasEnded) {
            host.turn.release();
            present.isOver.acquire();
        }
}

bool hasDied() { return present.deaths != 0; }
const std::string& firstProblem() { return present.problem; }

bool turnToNext() {
    std::vector<Choice>& choices = present.choices;
    while (!choices.empty() && ++choices.back().taken == choices.back().options) choices.pop_back();
    return !choices.empty();
}

}  // namespace wrenlink::test
