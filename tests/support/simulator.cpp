#include "tests/support/simulator.h"

#include <sstream>

namespace wrenlink::test {
namespace {

// The value of "name=value" in a line of words.
std::string field(const std::string& line, const std::string& name) {
    std::istringstream words(line);
    for (std::string word; words >> word;)
        if (word.compare(0, name.size() + 1, name + "=") == 0) return word.substr(name.size() + 1);
    return "";
}

}  // namespace

std::string Simulator::state(const std::string& what, unsigned adapter) {
    return field(control("state " + std::to_string(adapter)), what);
}

std::vector<std::string> Simulator::takeFrames(unsigned adapter) {
    const std::string number = std::to_string(adapter);
    std::istringstream lines(control("log " + number));
    control("log " + number + " clear");
    std::vector<std::string> frames;
    for (std::string line; std::getline(lines, line);) {
        const std::string verdict = field(line, "verdict");
        frames.push_back(field(line, "frame") + (verdict == "good" ? "" : " " + verdict));
    }
    return frames;
}

}  // namespace wrenlink::test
