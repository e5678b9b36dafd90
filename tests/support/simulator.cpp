#include "tests/support/simulator.h"

#include <sstream>
#include <stdexcept>

namespace wrenlink::test {

std::string textOf(NativeError error) { return textOf(kNativeErrors[static_cast<int>(error)]); }

std::string field(const std::string& line, const std::string& name) {
    std::istringstream words(line);
    for (std::string word; words >> word;)
        if (word.compare(0, name.size() + 1, name + "=") == 0) return word.substr(name.size() + 1);
    return "";
}

std::string Simulator::control(const std::string& line) {
    try {
        return run(line);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(line + ": " + error.what());
    }
}

std::vector<std::string> Simulator::takeLog(unsigned adapter) {
    std::istringstream log(control("log " + std::to_string(adapter) + " take"));
    std::vector<std::string> lines;
    for (std::string line; std::getline(log, line);) lines.push_back(line);
    return lines;
}

std::vector<std::string> Simulator::takeFrames(unsigned adapter) {
    std::vector<std::string> frames;
    for (const std::string& line : takeLog(adapter)) {
        const std::string verdict = field(line, "verdict");
        frames.push_back(field(line, "frame") + (verdict == "good" ? "" : " " + verdict));
    }
    return frames;
}

int Simulator::number(const std::string& name, unsigned adapter) {
    return std::stoi(field(control("state " + std::to_string(adapter)), name), nullptr, 0);
}

}  // namespace wrenlink::test
