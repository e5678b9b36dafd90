// A program that has the adapters to itself: it finds them, in a folder that goes with it, and no
// others.
#ifndef QUILLSIM_SERVER_PROGRAM_H
#define QUILLSIM_SERVER_PROGRAM_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace quillsim {

struct PrivateFolder {
    PrivateFolder();
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;
    ~PrivateFolder();

    std::string path;
};

// Starts it, to be ended when this process ends. Throws std::system_error, as the folder does.
pid_t startProgram(std::vector<std::string> words, const std::string& folder);

// Waits for its end. A signal that ended it counts as 128 and its number, as in a shell.
int exitCodeOf(pid_t program);

}  // namespace quillsim

#endif
