// What a command found, in the form that its reader wants: text for people as it comes, or one JSON
// object on one line when the command has ended.
//
// Threads: used by the main thread. Failures to write are thrown as Failure.
#ifndef WREN_OUTPUT_H
#define WREN_OUTPUT_H

#include <fmt/format.h>

#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "failure.h"

namespace wren {

using Json = nlohmann::ordered_json;

class Output {
   public:
    Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    ~Output();

    // From now on JSON; the text form goes nowhere.
    void useJson() noexcept { asJson_ = true; }
    bool isJson() const noexcept { return asJson_; }
    // The command's name, which the object bears.
    void setCommand(std::string name) { command_ = std::move(name); }

    template <class... Values>
    void print(fmt::format_string<Values...> format, Values&&... values) {
        if (!asJson_) write(fmt::format(format, std::forward<Values>(values)...));
    }
    // The object's member "result"; to be filled in.
    Json& result() noexcept { return *result_; }

    // In the form of JSON, writes an object of a command that goes on, and starts the next one.
    void finishRound();
    // Writes what is left, and the failure unless it is null, and sees that all of it arrives.
    void finish(const Failure* failure);

   private:
    static void write(std::string_view text);
    void writeObject(const Failure* failure);

    bool asJson_ = false;
    std::string command_;
    std::unique_ptr<Json> result_;
};

}  // namespace wren

#endif
