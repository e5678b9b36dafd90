#include <nlohmann/json.hpp>

#include "commands.h"
#include "files.h"
#include "image_format.h"
#include "interruption.h"
#include "script.h"

namespace wren {

namespace {

std::vector<ScriptAction> loadScript(const std::string& file) {
    const std::string text = readFile(file);
    try {
        return parseScript(text);
    } catch (const Failure& failure) {
        throw Failure(failure.exitCode(), fmt::format("cannot use '{}': {}", file, failure.what()));
    }
}

// Points into the action.
SpiAction recordOf(ScriptAction& action) {
    if (action.kind == ActionKind::set) return settingAction(action.setting);
    return memoryAction(action.kind == ActionKind::read ? SPIFNS_READ : SPIFNS_WRITE,
                        action.segment.address, action.segment.words.data(),
                        action.segment.words.size());
}

void report(Report& report, std::span<const ScriptAction> actions) {
    const ImageFormat& text = *formatByName("text");
    Json& result = report.result();
    result["actions"] = actions.size();
    result["reads"] = Json::array();
    for (const ScriptAction& action : actions) {
        if (action.kind != ActionKind::read) continue;
        report.print("{}", text.print({&action.segment, 1}, Endian::little));
        result["reads"].push_back({{"line", action.line},
                                   {"address", action.segment.address},
                                   {"words", action.segment.words}});
    }
}

}  // namespace

Work runScript(const std::string& file) {
    return [script = loadScript(file)](Adapter& adapter) {
        std::vector<ScriptAction> actions = script;
        std::vector<SpiAction> records;
        std::vector<Setting> settings;
        for (ScriptAction& action : actions) {
            records.push_back(recordOf(action));
            if (action.kind == ActionKind::set) settings.push_back(action.setting);
        }
        adapter.session.requireClocks(settings);
        noteInterrupts();
        try {
            adapter.session.submit(records);
        } catch (Failure& failure) {
            failure.setProgress("what the sequence did before that stays done");
            throw;
        }
        if (interrupted()) {
            Failure failure(ExitCode::interrupted, "interrupted");
            failure.setProgress("after all of the sequence");
            throw Failure(failure);
        }
        report(adapter.report, actions);
    };
}

}  // namespace wren
