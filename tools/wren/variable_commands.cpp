#include <wrenlink/spifns.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "commands.h"

namespace wren {

namespace {

// The interface mode can be set but is kept in the adapter alone.
std::optional<std::string> presentValue(const Session& session, const std::string& name) {
    if (!isReadable(name)) return std::nullopt;
    return session.get(name);
}

}  // namespace

void getVariables(Context& context, const std::vector<std::string>& names) {
    std::vector<std::string> variables(names.size());
    std::ranges::transform(names, variables.begin(), readableVariable);
    const Connected session(context);
    Json& result = context.output.result()["variables"];
    for (const std::string& name : variables) {
        const std::string value = session.get(name);
        context.output.print("{}={}\n", name, shownValue(name, value));
        result[name] = value;
    }
}

void setVariables(Context& context, const std::vector<std::string>& settings) {
    std::vector<Setting> checked(settings.size());
    std::ranges::transform(settings, checked.begin(), parseSetting);
    Connected session(context);
    Json& result = context.output.result()["variables"];
    session.setAll(checked);
    for (const Setting& setting : checked) {
        // What the adapter made of it: a clock is rounded.
        const std::string value = presentValue(session, setting.name).value_or(setting.value);
        context.output.print("{}={}\n", setting.name, shownValue(setting.name, value));
        result[setting.name] = value;
    }
}

void listVariables(Context& context) {
    const spifns_variable* table = nullptr;
    std::uint32_t count = 0;
    spifns_getvarlist(&table, &count);
    const Connected session(context);
    Json& result = context.output.result()["variables"];
    result = Json::array();
    context.output.print("{:<16}  {:<9}  {}\n", "NAME", "DEFAULT", "PRESENT");
    for (const spifns_variable& variable : std::span(table, count)) {
        const auto present = presentValue(session, variable.name);
        context.output.print("{:<16}  {:<9}  {}\n", variable.name,
                             shownValue(variable.name, variable.default_value),
                             present ? shownValue(variable.name, *present) : "-");
        result.push_back({{"name", variable.name},
                          {"default", variable.default_value},
                          {"present", present ? Json(*present) : Json()},
                          {"opens_port", variable.flag != 0}});
    }
}

}  // namespace wren
