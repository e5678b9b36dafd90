#include <gtest/gtest.h>

#include <cstring>
#include <iostream>
#include <map>
#include <string>

#include "tests/support/child_process.h"

namespace wrenlink::test {
namespace {

std::map<std::string, ChildRole::Play>& roles() {
    static std::map<std::string, ChildRole::Play> theRoles;
    return theRoles;
}

}  // namespace

ChildRole::ChildRole(const char* name, Play play) { roles()[name] = play; }

void tellParent(const std::string& line) { std::cout << line << std::endl; }

void awaitParent() {
    std::string line;
    std::getline(std::cin, line);
}

std::string ChildProcess::readLine() {
    std::string line;
    for (int next = std::fgetc(fromChild_); next != EOF && next != '\n';
         next = std::fgetc(fromChild_)) {
        line.push_back(static_cast<char>(next));
    }
    return line;
}

void ChildProcess::go() {
    std::fputs("go\n", toChild_);
    std::fflush(toChild_);
}

}  // namespace wrenlink::test

int main(int argc, char** argv) {
    if (argc >= 3 && std::strcmp(argv[1], "--child") == 0) {
        return wrenlink::test::roles().at(argv[2])({argv + 3, argv + argc});
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
