#include <gtest/gtest.h>

#include <cstring>
#include <iostream>
#include <map>

#include "tests/support/child_process.h"

namespace wrenlink::test {
namespace {

std::filesystem::path ownProgram;

std::map<std::string, ChildRole::Play>& roles() {
    static std::map<std::string, ChildRole::Play> theRoles;
    return theRoles;
}

Arguments childWords(const std::string& role, const Arguments& arguments) {
    Arguments words = {ownProgram.string(), "--child", role};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
}

}  // namespace

ChildRole::ChildRole(const char* name, Play play) { roles()[name] = play; }

void tellParent(const std::string& line) { std::cout << line << std::endl; }

void awaitParent() {
    std::string line;
    std::getline(std::cin, line);
}

ChildProcess::ChildProcess(const std::string& role, const Arguments& arguments)
    : Program(childWords(role, arguments)) {}

}  // namespace wrenlink::test

int main(int argc, char** argv) {
    using namespace wrenlink::test;
    if (argc >= 3 && std::strcmp(argv[1], "--child") == 0)
        return roles().at(argv[2])({argv + 3, argv + argc});
    ownProgram = std::filesystem::absolute(argv[0]);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
