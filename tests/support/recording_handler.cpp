#include "tests/support/recording_handler.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

namespace wrenlink::test {
namespace {

// Never destroyed: the library still traces while the process's static objects go.
std::vector<std::string>& messages() {
    static auto& theMessages = *new std::vector<std::string>;
    return theMessages;
}

bool activated = false;

std::string scope(const char* arrow, const char* function, const char* file, unsigned long line) {
    return std::string(arrow) + ' ' + function + ' ' + file + ':' + std::to_string(line);
}

}  // namespace

std::vector<std::string> takeMessages() { return std::exchange(messages(), {}); }
void setDebugActivated(bool wanted) { activated = wanted; }

}  // namespace wrenlink::test

using namespace wrenlink::test;

void CMessageHandler::DebugOutputInHandler(unsigned long level, bool flag, bool isResult,
                                           const char* function, const char* file,
                                           unsigned long line, const char* format, ...) {
    char text[1024];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    const std::string way = std::to_string(level) + ' ' + std::to_string(flag) + ' ';
    messages().push_back(isResult ? scope("<-", function, file, line) + ' ' + way + text
                                  : way + function + '|' + text);
}

void CMessageHandler::DebugOutputProfile(unsigned long level) {
    messages().push_back("mark " + std::to_string(level));
}

bool CMessageHandler::SetErrorMsg(short code, const std::string& text) {
    messages().push_back("error " + std::to_string(code) + ": " + text);
    return true;
}

namespace {

constinit CMessageHandler theHandler;

}  // namespace

constinit bool CTheMsgHnd::listening_ = true;
constinit CTheMsgHnd CTheMsgHnd::silent_;
constinit CMessageHandler& CTheMsgHnd::silentHandler_ = theHandler;

CTheMsgHnd& CTheMsgHnd::ListeningInstance() {
    messages().emplace_back("instance");
    return silent_;
}

CMessageHandler& CTheMsgHnd::ListeningHandler(CMessageHandler::GroupEnum group, const char* name,
                                              bool flag) {
    messages().push_back("handler " + std::to_string(group) + ' ' + std::to_string(flag) + ' ' +
                         name);
    return theHandler;
}

bool CTheMsgHnd::DebugActivated() { return activated; }

void CMessageHandler::PrintEntryLine(const char* function, const char* file, unsigned long line) {
    messages().push_back(scope("->", function, file, line));
}

void CMessageHandler::PrintExitLine(const char* function, const char* file, unsigned long line) {
    messages().push_back(scope("<-", function, file, line));
}
