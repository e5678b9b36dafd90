// What the tool does: one function for each of its commands. Results go to the context's output; a
// failure is thrown as Failure. Arguments have been checked one by one; what they make together is
// checked here, before the first exchange.
//
// Threads: called once, by the main thread.
#ifndef WREN_COMMANDS_H
#define WREN_COMMANDS_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "debug_text.h"
#include "image_source.h"
#include "output.h"
#include "session.h"

namespace wren {

// Which adapter a command works with, and how.
struct Connection {
    std::string port = "0";         // selection key, adapter id or device id
    std::vector<Setting> settings;  // made in this order once the adapter is selected
};

// What every command is given.
struct Context {
    Connection connection;
    DebugText debugText;
    Output output;
};

// A session with the adapter selected and set up.
class Connected : public Session {
   public:
    explicit Connected(Context& context) : Session(context.debugText) {
        select(context.connection.port);
        setAll(context.connection.settings);
    }
};

struct ReadRequest {
    RegionChoice region;
    std::optional<std::string> file;  // else standard output, as text
    FormatChoice format;
};

struct WriteRequest {
    ImageSource source;
    bool verify = true;
};

struct CompareRequest {
    ImageSource source;
    std::size_t mostListed = 8;
};

struct FillRequest {
    Region region;
    std::vector<std::uint16_t> pattern;  // repeated, from the region's start on
    bool verify = true;
};

struct DumpRequest {
    RegionChoice region;                 // else 128 words, or what is left of the memory
    std::optional<double> watchSeconds;  // from one look to the next
    std::uint64_t mostLooks = 0;         // 0: until Ctrl-C
};

struct MgcmdRequest {
    std::vector<std::uint16_t> words;
    std::vector<std::uint16_t> preparation;  // two words, or none
    bool strict = true;
};

struct SpeedRequest {
    double seconds = 1;
};

void listPorts(Context& context);
void showInfo(Context& context);
void showXapState(Context& context);
void measureSpeed(Context& context, const SpeedRequest& request);

void readMemory(Context& context, const ReadRequest& request);
void writeMemory(Context& context, const WriteRequest& request);
void compareMemory(Context& context, const CompareRequest& request);
void fillMemory(Context& context, const FillRequest& request);
void dumpMemory(Context& context, const DumpRequest& request);

void getVariables(Context& context, const std::vector<std::string>& names);
void setVariables(Context& context, const std::vector<std::string>& settings);
void listVariables(Context& context);

void sendCommand(Context& context, const std::string& name);
void sendMgcmd(Context& context, const MgcmdRequest& request);
void runScript(Context& context, const std::string& file);

}  // namespace wren

#endif
