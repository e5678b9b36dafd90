#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>

#include "failure.h"
#include "simulation.h"
#include "system.h"

namespace wren {

// quillsim makes the adapters and runs the tool with them, which finds the variable.
std::shared_ptr<void> simulate(unsigned adapters, const std::string& captureFile, char** argv) try {
    constexpr const char* kVariable = "WREN_IS_SIMULATED";
    std::error_code ignored;
    const auto beside =
        std::filesystem::read_symlink("/proc/self/exe", ignored).replace_filename("quillsim");
    std::vector<std::string> words{::access(beside.c_str(), X_OK) == 0 ? beside : "quillsim",
                                   "--adapters", std::to_string(adapters)};
    if (!captureFile.empty()) words.insert(words.end(), {"--capture", captureFile});
    system::runAgainWith(kVariable, "yes", argv, words);
    ::unsetenv(kVariable);
    return nullptr;
} catch (const std::system_error&) {
    throw Failure(ExitCode::failed, "no simulated adapters: 'quillsim' is missing",
                  "put it beside wren, or on PATH");
}

}  // namespace wren
