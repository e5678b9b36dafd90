#include "commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <functional>

#include "failure.h"
#include "hex_view.h"
#include "interruption.h"
#include "number.h"
#include "progress.h"
#include "transfer.h"
#include "word_file.h"

namespace wren {

namespace {

// A session with the adapter selected and set up.
class Connected : public Session {
   public:
    explicit Connected(const Connection& connection) : Session(connection.debugText) {
        select(connection.port);
        for (const Setting& setting : connection.settings) set(setting);
    }
};

std::string wordCount(std::size_t count) {
    return fmt::format("{} word{}", count, count == 1 ? "" : "s");
}

void requireRegion(std::uint32_t address, std::size_t count) {
    if (address + count > kMemoryWords)
        throw Failure(ExitCode::usage,
                      fmt::format("{} from 0x{:04x} on would reach beyond the last word, 0xffff",
                                  wordCount(count), address));
}

// Receives a transfer's progress: shows it, and ends the transfer where the user interrupts it.
class Watch {
   public:
    Watch(const char* doing, std::size_t total) : doing_(doing), total_(total), bar_(doing, total) {
        noteInterrupts();
    }

    void operator()(std::size_t done) {
        bar_.update(done);
        if (interrupted())
            throw Failure(ExitCode::interrupted, fmt::format("interrupted after {} {} of {}",
                                                             doing_, done, wordCount(total_)));
    }

   private:
    const char* doing_;
    std::size_t total_;
    ProgressBar bar_;
};

std::vector<std::uint16_t> readRegion(Session& session, std::uint32_t address, std::size_t count) {
    std::vector<std::uint16_t> words(count);
    Watch watch("reading", count);
    readWords(session, address, words, std::ref(watch));
    return words;
}

void writeRegion(Session& session, std::uint32_t address, std::span<const std::uint16_t> words) {
    Watch watch("writing", words.size());
    writeWords(session, address, words, std::ref(watch));
}

void verifyRegion(Session& session, std::uint32_t address, std::span<const std::uint16_t> words) {
    const Comparison comparison = [&] {
        Watch watch("verifying", words.size());
        return compareWords(session, address, words, std::ref(watch));
    }();
    if (comparison.differing == 0) return;
    for (const Difference& word : comparison.first)
        fmt::print(stderr, "0x{:04x}: wrote 0x{:04x}, read 0x{:04x}\n", word.address, word.expected,
                   word.found);
    throw Failure(ExitCode::differs, fmt::format("{} of {} words differ from what was written",
                                                 comparison.differing, words.size()));
}

// "0109", the version's two bytes in hexadecimal, is version 1.9.
std::string versionText(const std::string& variable) {
    const auto version = wholeNumber("0x" + variable);
    return version ? fmt::format("{}.{}", *version >> 8, *version & 0xFF) : variable;
}

void printField(const char* name, const std::string& value) {
    fmt::print("{:<16}{}\n", name, value);
}

const char* xapText(const Session& session) { return session.xapStopped() ? "stopped" : "running"; }

}  // namespace

void listPorts(const Connection& connection) {
    const Session session(connection.debugText);
    const std::vector<Port> ports = session.ports();
    if (ports.empty()) fmt::print(stderr, "wren: no adapters found\n");
    for (const Port& port : ports) fmt::print("{:>2}  {}\n", port.key, port.name);
}

void showInfo(const Connection& connection) {
    const Connected session(connection);
    printField("adapter", session.deviceId());
    printField("port", session.get("SPIPORT"));
    printField("firmware", versionText(session.get("QUILLVERSION")));
    printField("delay", session.get("SPI_DELAY"));
    printField("clock", session.get("SPICLOCK") + " kHz");
    printField("max clock", session.get("SPIMAXCLOCK") + " kHz");
    printField("read bits", session.get("SPICMDREADBITS"));
    printField("write bits", session.get("SPICMDWRITEBITS"));
    printField("XAP", xapText(session));
}

void readMemory(const Connection& connection, const ReadRequest& request) {
    requireRegion(request.address, request.count);
    Connected session(connection);
    const auto words = readRegion(session, request.address, request.count);
    if (request.outputFile.empty()) {
        fmt::print("{}", wordList(words));
        return;
    }
    writeWordFile(request.outputFile, words);
    fmt::print("{} from 0x{:04x} on read into {}\n", wordCount(words.size()), request.address,
               request.outputFile);
}

void writeMemory(const Connection& connection, const WriteRequest& request) {
    if (request.words.empty() && request.inputFile.empty())
        throw Failure(ExitCode::usage, "nothing to write: give WORDS or --input FILE");
    const auto words = request.inputFile.empty()
                           ? request.words
                           : readWordFile(request.inputFile, kMemoryWords - request.address);
    requireRegion(request.address, words.size());
    Connected session(connection);
    writeRegion(session, request.address, words);
    if (request.verify) verifyRegion(session, request.address, words);
    fmt::print("{} from 0x{:04x} on written{}\n", wordCount(words.size()), request.address,
               request.verify ? " and verified" : "");
}

void dumpMemory(const Connection& connection, const DumpRequest& request) {
    constexpr std::size_t kUsualCount = 128;
    const std::size_t count = request.count.value_or(
        static_cast<std::uint32_t>(std::min(kUsualCount, kMemoryWords - request.address)));
    requireRegion(request.address, count);
    Connected session(connection);
    fmt::print("{}", hexView(request.address, readRegion(session, request.address, count)));
}

void showXapState(const Connection& connection) {
    const Connected session(connection);
    fmt::print("{}\n", xapText(session));
}

void getVariables(const Connection& connection, const std::vector<std::string>& names) {
    std::vector<std::string> variables(names.size());
    std::ranges::transform(names, variables.begin(), readableVariable);
    const Connected session(connection);
    for (const std::string& name : variables) fmt::print("{}={}\n", name, session.get(name));
}

void setVariables(const Connection& connection, const std::vector<std::string>& settings) {
    std::vector<Setting> checked(settings.size());
    std::ranges::transform(settings, checked.begin(), parseSetting);
    Connected session(connection);
    for (const Setting& setting : checked) {
        session.set(setting);
        // What the adapter made of it: a clock is rounded, and the mode cannot be read back.
        const std::string value = session.get(setting.name);
        fmt::print("{}={}\n", setting.name, value.empty() ? setting.value : value);
    }
}

void sendCommand(const Connection& connection, const std::string& name) {
    const std::string command = chipCommand(name);
    Connected session(connection);
    session.command(command);
}

}  // namespace wren
