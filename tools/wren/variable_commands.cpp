#include <algorithm>
#include <nlohmann/json.hpp>

#include "commands.h"

namespace wren {

Work getVariables(const std::vector<std::string>& names) {
    std::vector<std::string> variables = names.empty() ? readableVariables() : names;
    std::ranges::transform(variables, variables.begin(), readableVariable);
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
            // What the adapter made of it: a clock is rounded. The interface mode cannot be read.
            const std::string value =
                isReadable(setting.name) ? adapter.session.get(setting.name) : setting.value;
            adapter.report.print("{}={}\n", setting.name, shownValue(setting.name, value));
            result[setting.name] = value;
        }
    };
}

}  // namespace wren
