// quillsim's command line as far as it is the same on every system: the options that describe
// adapters, the lines of the control language that make adapters so, and how it answers a line that
// makes no sense.
#ifndef QUILLSIM_ADAPTER_ARGUMENTS_H
#define QUILLSIM_ADAPTER_ARGUMENTS_H

#include <CLI/CLI.hpp>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "sim/model/adapter.h"
#include "sim/model/text.h"

namespace quillsim {

// The path of a file by its UTF-8 name.
inline std::filesystem::path pathOf(const std::string& name) {
    return std::u8string(name.begin(), name.end());
}

// Lists are given for some adapters, by number; valueFor tells what holds for the others.
struct AdapterArguments {
    std::size_t adapters = 1;
    std::vector<std::uint32_t> ids;
    std::vector<std::string> firmware;
    std::vector<std::string> memory;
    std::vector<std::string> xap;
    std::uint64_t answerMicroseconds = 0;
};

// An option that is given once for each adapter in turn.
template <class Values>
CLI::Option* addPerAdapter(CLI::App& app, const char* name, Values& values,
                           const char* description) {
    return app.add_option(name, values, description)->allow_extra_args(false);
}

inline void declareAdapters(CLI::App& app, AdapterArguments& arguments, std::size_t mostAdapters) {
    app.add_option("--adapters", arguments.adapters, "how many adapters")
        ->check(CLI::Range(std::size_t{0}, mostAdapters))
        ->capture_default_str();
    addPerAdapter(app, "--id", arguments.ids, "adapter id (others: 100, 200, ... by number)");
    addPerAdapter(app, "--firmware", arguments.firmware,
                  "MAJOR.MINOR (others: as the last one, or 1.9)")
        ->check(CLI::Validator(
            [](std::string& text) {
                std::uint16_t version = 0;
                return readFirmware(text, version) ? "" : "'" + text + "' is not MAJOR.MINOR";
            },
            ""));
    addPerAdapter(app, "--memory", arguments.memory,
                  "file of little-endian words from address 0 on (others: zeros)")
        ->check(CLI::Validator(
            [](std::string& name) {
                std::error_code ignored;
                const auto kind = std::filesystem::status(pathOf(name), ignored);
                const bool isFile = exists(kind) && !is_directory(kind);
                return isFile ? "" : "File does not exist: " + name;
            },
            ""));
    addPerAdapter(app, "--xap", arguments.xap,
                  "running or stopped (others: as the last one, or running)")
        ->check(CLI::IsMember({"running", "stopped"}));
    app.add_option("--answer-us,--delay-us", arguments.answerMicroseconds,
                   "microseconds that every request takes")
        ->type_name("N");
}

inline void declareManners(CLI::App& app) {
    app.set_version_flag("--version", "quillsim of wrenlink " QUILLSIM_VERSION);
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return std::string("quillsim: ") + error.what() + "; --help tells what there is\n";
    });
}

// Prints what a command line that is not carried out asks for, or what is wrong with it, and
// returns the exit code: 0 or 2.
inline int answerUnrun(const CLI::App& app, const CLI::ParseError& error, std::ostream& out,
                       std::ostream& complaints) {
    return app.exit(error, out, complaints) == 0 ? 0 : 2;
}

// The value of an adapter in a list given for some: its own, else the last one, else the default.
inline std::string valueFor(const std::vector<std::string>& values, std::size_t adapter,
                            const char* otherwise) {
    if (values.empty()) return otherwise;
    return adapter < values.size() ? values[adapter] : values.back();
}

// Carries out a line of the control language. Throws std::runtime_error.
using RunLine = std::function<void(const std::string& line)>;

inline void loadMemory(const std::string& file, const std::string& adapter, const RunLine& run) {
    constexpr std::size_t kWordsALine = 32;
    std::string image(2 * kMemoryWords + 1, '\0');
    std::ifstream in(pathOf(file), std::ios::binary);
    in.read(image.data(), static_cast<std::streamsize>(image.size()));
    if (!in.eof())
        throw std::runtime_error(file + (in ? ": more than 65536 words" : ": cannot be read"));
    image.resize(static_cast<std::size_t>(in.gcount()));
    if (image.size() % 2 != 0) throw std::runtime_error(file + ": ends inside a word");
    std::string line;
    for (std::size_t i = 0; i < image.size(); i += 2) {
        if (line.empty()) line = "poke " + adapter + ' ' + std::to_string(i / 2);
        const auto low = static_cast<unsigned char>(image[i]);
        const auto high = static_cast<unsigned char>(image[i + 1]);
        line += ' ' + std::to_string(low + 256 * high);
        if (i / 2 % kWordsALine == kWordsALine - 1 || i + 2 == image.size())
            run(std::exchange(line, {}));
    }
}

// Makes adapters at power-on, with the ids 100, 200, ..., what the arguments say.
inline void configure(const AdapterArguments& arguments, const RunLine& run) {
    for (std::size_t i = 0; i < arguments.adapters; ++i) {
        const std::string number = std::to_string(i);
        const std::string set = "set " + number;
        if (i < arguments.ids.size()) run(set + " id " + std::to_string(arguments.ids[i]));
        run(set + " firmware " + valueFor(arguments.firmware, i, "1.9"));
        run("xap " + number + ' ' + valueFor(arguments.xap, i, "running"));
        run(set + " answer-us " + std::to_string(arguments.answerMicroseconds));
        if (i < arguments.memory.size()) loadMemory(arguments.memory[i], number, run);
    }
}

}  // namespace quillsim

#endif
