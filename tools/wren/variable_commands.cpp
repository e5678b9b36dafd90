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

Work getVariables(const std::vector<std::string>& names) {
    std::vector<std::string> variables(names.size());
    std::ranges::transform(names, variables.begin(), readableVariable);
    return briefly([variables](Adapter& adapter) {
        Json& result = adapter.report.result()["variables"];
        for (const std::string& name : variables) {
            const std::string value = adapter.session.get(name);
            adapter.report.print("{}={}\n", name, shownValue(name, value));
            result[name] = value;
        }
    });
}

Work setVariables(const std::vector<std::string>& settings) {
    std::vector<Setting> checked(settings.size());
    std::ranges::transform(settings, checked.begin(), parseSetting);
    return [checked](Adapter& adapter) {
        Json& result = adapter.report.result()["variables"];
        adapter.session.setAll(checked);
        for (const Setting& setting : checked) {
            // What the adapter made of it: a clock is rounded.
            const std::string value =
                presentValue(adapter.session, setting.name).value_or(setting.value);
            adapter.report.print("{}={}\n", setting.name, shownValue(setting.name, value));
            result[setting.name] = value;
        }
    };
}

Work listVariables() {
    return briefly([](Adapter& adapter) {
        const spifns_variable* table = nullptr;
        std::uint32_t count = 0;
        spifns_getvarlist(&table, &count);
        Json& result = adapter.report.result()["variables"];
        result = Json::array();
        adapter.report.print("{:<16}  {:<9}  {}\n", "NAME", "DEFAULT", "PRESENT");
        for (const spifns_variable& variable : std::span(table, count)) {
            const auto present = presentValue(adapter.session, variable.name);
            adapter.report.print("{:<16}  {:<9}  {}\n", variable.name,
                                 shownValue(variable.name, variable.default_value),
                                 present ? shownValue(variable.name, *present) : "-");
            result.push_back({{"name", variable.name},
                              {"default", variable.default_value},
                              {"present", present ? Json(*present) : Json()},
                              {"opens_port", variable.flag != 0}});
        }
    });
}

}  // namespace wren
