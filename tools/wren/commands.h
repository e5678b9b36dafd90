// What the tool does: one function for each of its commands. Results go to standard output; a
// failure is thrown as Failure. Arguments have been checked one by one; what they make together is
// checked here, before the first exchange.
//
// Threads: called once, by the main thread.
#ifndef WREN_COMMANDS_H
#define WREN_COMMANDS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "session.h"

namespace wren {

// Which adapter a command works with, and how.
struct Connection {
    std::string port = "0";         // selection key or adapter id
    std::vector<Setting> settings;  // made in this order once the adapter is selected
    DebugText debugText = DebugText::warnings;
};

struct ReadRequest {
    std::uint32_t address = 0;
    std::uint32_t count = 0;
    std::string outputFile;  // standard output when empty
};

struct WriteRequest {
    std::uint32_t address = 0;
    std::vector<std::uint16_t> words;
    std::string inputFile;  // replaces words unless empty
    bool verify = true;
};

struct DumpRequest {
    std::uint32_t address = 0;
    std::optional<std::uint32_t> count;  // else 128, or what is left of the memory
};

void listPorts(const Connection& connection);
void showInfo(const Connection& connection);
void readMemory(const Connection& connection, const ReadRequest& request);
void writeMemory(const Connection& connection, const WriteRequest& request);
void dumpMemory(const Connection& connection, const DumpRequest& request);
void showXapState(const Connection& connection);
void getVariables(const Connection& connection, const std::vector<std::string>& names);
void setVariables(const Connection& connection, const std::vector<std::string>& settings);
void sendCommand(const Connection& connection, const std::string& name);

}  // namespace wren

#endif
