// How a command of the tool ends: the exit codes, and the exception that carries a failure to
// main().
//
// Threads: plain values.
#ifndef WREN_FAILURE_H
#define WREN_FAILURE_H

#include <array>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "image.h"
#include "system.h"

namespace wren {

// The exit codes that scripts rely on.
enum class ExitCode : int {
    done = 0,
    failed = 1,
    usage = 2,
    noAdapter = 3,
    differs = 4,
    unreachable = 5,
    interrupted = 130,
    unheard = 141,
};

struct ExitMeaning {
    ExitCode code;
    const char* meaning;
};

inline constexpr std::array kExitMeanings{
    ExitMeaning{ExitCode::done, "done"},
    ExitMeaning{ExitCode::failed, "the operation failed"},
    ExitMeaning{ExitCode::usage, "the command line makes no sense"},
    ExitMeaning{ExitCode::noAdapter, "no such adapter"},
    ExitMeaning{ExitCode::differs, "chip memory differs from what it was compared with"},
    ExitMeaning{ExitCode::unreachable, "the adapter is busy, unplugged or silent"},
    ExitMeaning{ExitCode::interrupted, "stopped with Ctrl-C; the line tells how far it got"},
    ExitMeaning{ExitCode::unheard, "nobody reads any more what it prints; no line tells so"},
};

// What the library's error codes mean to the user of the tool.
struct Remedy {
    int errorCode;
    ExitCode exitCode;
    const char* hint;  // the next thing to try
};

// Of any code; an unknown one is a failed operation.
const Remedy& remedyFor(int errorCode) noexcept;

// A failure that ends the command. what() says what went wrong in one line: the library's own text
// where the library failed. The rest is added to it where it is known.
class Failure : public std::runtime_error {
   public:
    // A failure that the tool found itself; errorCode() is 0.
    Failure(ExitCode exitCode, const std::string& text, std::string hint = "")
        : std::runtime_error(text), exitCode_(exitCode), hint_(std::move(hint)) {}
    // A failure that the library reported with a code above 0.
    Failure(ExitCode exitCode, const std::string& text, std::string hint, int errorCode)
        : std::runtime_error(text),
          exitCode_(exitCode),
          errorCode_(errorCode),
          hint_(std::move(hint)) {}

    ExitCode exitCode() const noexcept { return exitCode_; }
    int errorCode() const noexcept { return errorCode_; }
    // The words that could not be read, if it is about such; a count of 0 when it is known where
    // the failed read began, and no more.
    const std::vector<Region>& words() const noexcept { return words_; }
    // How far the command got, such as "after writing 8 of 16 words"; may be empty.
    const std::string& progress() const noexcept { return progress_; }
    // The next thing to try; may be empty.
    const std::string& hint() const noexcept { return hint_; }

    void setWords(std::vector<Region> words) { words_ = std::move(words); }
    void setProgress(std::string progress) { progress_ = std::move(progress); }
    void setHint(std::string hint) { hint_ = std::move(hint); }

   private:
    ExitCode exitCode_;
    int errorCode_ = 0;
    std::vector<Region> words_;
    std::string progress_;
    std::string hint_;
};

// Calls work and returns the failure that it ends with, if any.
template <class Work>
std::optional<Failure> failureOf(Work work) {
    try {
        work();
    } catch (const Failure& failure) {
        return failure;
    } catch (const std::exception& error) {
        return Failure(ExitCode::failed, system::inUtf8(error.what()));
    }
    return std::nullopt;
}

}  // namespace wren

#endif
