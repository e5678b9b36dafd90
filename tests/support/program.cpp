#include "tests/support/program.h"

namespace wrenlink::test {

Program::~Program() {
    kill();
    std::fclose(output_);
}

std::string Program::readLine() {
    std::string line;
    for (int next = std::fgetc(output_); next != EOF && next != '\n'; next = std::fgetc(output_))
        line.push_back(static_cast<char>(next));
    return line;
}

void Program::tell(const std::string& line) {
    std::fputs((line + '\n').c_str(), input_);
    std::fflush(input_);
}

}  // namespace wrenlink::test
