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

CTheMsgHnd& CTheMsgHnd::Instance() {
    static CTheMsgHnd instance;
    messages().emplace_back("instance");
    return instance;
}

CMessageHandler& CTheMsgHnd::GetAppropriateHandler(CMessageHandler::GroupEnum group,
                                                   const char* name, bool flag) {
    static CMessageHandler handler;
    messages().push_back("handler " + std::to_string(group) + ' ' + std::to_string(flag) + ' ' +
                         name);
    return handler;
}

bool CTheMsgHnd::DebugActivated() { return activated; }

CDebugSentry::CDebugSentry(CMessageHandler* handler, unsigned long line, const char* file,
                           const char* function)
    : handler_(handler), line_(static_cast<unsigned int>(line)), file_(file), function_(function) {
    messages().push_back(scope("->", function, file, line));
}

CDebugSentry::~CDebugSentry() {
    if (!exitPrinted_) messages().push_back(scope("<-", function_, file_, line_));
}

void CDebugSentry::CheckPrintExit() { PrintExit(); }

// The library's scopes that have a result print it themselves.
void CDebugSentry::PrintExit() {}
