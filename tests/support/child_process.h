// A second process for tests: this same executable, started again to play one role. What the two
// say to each other are lines of text. A test uses a child from one thread.
//
// An executable that starts children takes its main() from child_main.cpp.
#ifndef WRENLINK_TESTS_SUPPORT_CHILD_PROCESS_H
#define WRENLINK_TESTS_SUPPORT_CHILD_PROCESS_H

#include "tests/support/program.h"

namespace wrenlink::test {

using Arguments = std::vector<std::string>;

// A role, registered by an object of namespace scope. The function returns the child's exit code.
class ChildRole {
   public:
    using Play = int (*)(const Arguments& arguments);
    ChildRole(const char* name, Play play);
};

// In the child: tells the parent a line.
void tellParent(const std::string& line);
// In the child: waits until the parent says go, or has ended.
void awaitParent();

// In the parent.
class ChildProcess : public Program {
   public:
    explicit ChildProcess(const std::string& role, const Arguments& arguments = {});

    // Ends one awaitParent() of the child.
    void go() { tell("go"); }
};

}  // namespace wrenlink::test

#endif
