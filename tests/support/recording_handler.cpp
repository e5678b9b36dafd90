#include "tests/support/recording_handler.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

namespace wrenlink::test {
namespace {

// Never destroyed: the library still traces while the process's static objects go.
std::vector<Message>& record() {
    static auto& messages = *new std::vector<Message>;
    return messages;
}

bool activated = false;

void keep(Message message) { record().push_back(std::move(message)); }

std::string orEmpty(const char* text) { return text == nullptr ? "" : text; }

std::string formatted(const char* format, std::va_list arguments) {
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length < 0) return "";
    std::string text(static_cast<std::size_t>(length), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    return text;
}

Message scopeMessage(MessageKind kind, const char* function, const char* file, unsigned long line) {
    return {.kind = kind, .function = orEmpty(function), .file = orEmpty(file), .line = line};
}

}  // namespace

const std::vector<Message>& messages() { return record(); }
void clearMessages() { record().clear(); }
void setDebugActivated(bool wanted) { activated = wanted; }

}  // namespace wrenlink::test

using wrenlink::test::keep;
using wrenlink::test::MessageKind;
using wrenlink::test::orEmpty;
using wrenlink::test::scopeMessage;

void CMessageHandler::DebugOutputInHandler(unsigned long level, bool flag, bool isResult,
                                           const char* function, const char* file,
                                           unsigned long line, const char* format, ...) {
    wrenlink::test::Message message = scopeMessage(MessageKind::output, function, file, line);
    message.level = level;
    message.flag = flag;
    message.isResult = isResult;
    std::va_list arguments;
    va_start(arguments, format);
    message.text = wrenlink::test::formatted(format, arguments);
    va_end(arguments);
    keep(std::move(message));
}

void CMessageHandler::DebugOutputProfile(unsigned long level) {
    keep({.kind = MessageKind::profile, .level = level});
}

bool CMessageHandler::SetErrorMsg(short code, const std::string& text) {
    keep({.kind = MessageKind::error, .text = text, .code = code});
    return true;
}

namespace {

constinit CMessageHandler theHandler;

}  // namespace

constinit bool CTheMsgHnd::listening_ = true;
constinit CTheMsgHnd CTheMsgHnd::silent_;
constinit CMessageHandler& CTheMsgHnd::silentHandler_ = theHandler;

CTheMsgHnd& CTheMsgHnd::ListeningInstance() {
    keep({.kind = MessageKind::instance});
    return silent_;
}

CMessageHandler& CTheMsgHnd::ListeningHandler(CMessageHandler::GroupEnum group, const char* name,
                                              bool flag) {
    keep(
        {.kind = MessageKind::getHandler, .group = group, .flag = flag, .function = orEmpty(name)});
    return theHandler;
}

bool CTheMsgHnd::DebugActivated() { return wrenlink::test::activated; }

void CMessageHandler::PrintEntryLine(const char* function, const char* file, unsigned long line) {
    keep(scopeMessage(MessageKind::entry, function, file, line));
}

void CMessageHandler::PrintExitLine(const char* function, const char* file, unsigned long line) {
    keep(scopeMessage(MessageKind::exit, function, file, line));
}
