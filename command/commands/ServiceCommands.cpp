// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <map>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

#include "command/commands/CommandContext.h"
#include "command/commands/CommandTable.h"
#include "command/commands/StatusView.h"

namespace {

using std::chrono::milliseconds;

// How often a view is drawn anew while nothing changes, and how soon a signal ends it.
constexpr milliseconds kRedraw{1000};
constexpr milliseconds kSignalInterval{100};

constexpr const char* kTopOfScreen = "\033[H\033[J";

Outcome ComponentOutcome(CCommandContext& context, const std::string& json) {
    Outcome outcome;
    outcome.json = json;
    outcome.text = ComponentLine(context, ParseJson(json));
    return outcome;
}

// A view ends once, whoever sees that first. Nobody reads on where writing has failed: the device is full, say.
class CEnd {
public:
    bool HasCome() {
        hasCome_ =
            hasCome_ || CConsoleWait::EndIsAskedFor() || CConsoleWait::TakeInterrupt() || std::ferror(stdout) != 0;
        return hasCome_;
    }

private:
    bool hasCome_ = false;
};

// @return a component with its newest result; nothing when none came
std::string WaitForResult(CServiceClient& service, milliseconds time, CEnd& end) {
    for (auto left = time; left.count() > 0 && !end.HasCome(); left -= kSignalInterval) {
        if (const auto line = service.NextLine(kSignalInterval)) {
            const auto* component = CRapidJsonUtil::Find(*line, "component");
            if (component != nullptr) {
                return JsonText(*component);
            }
        }
    }
    return {};
}

// The whole view, again and again, for people.
void WatchScreen(CCommandContext& context, CServiceClient& service) {
    CEnd end;
    while (!end.HasCome()) {
        winsize size{};
        const bool isKnown = ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 && size.ws_col > 0;
        context.Terminal().Print(kTopOfScreen + ScreenText(context, service.Status(), isKnown ? size.ws_row : SIZE_MAX,
                                                           isKnown ? size.ws_col : SIZE_MAX));
        WaitForResult(service, kRedraw, end);
    }
    context.Terminal().Print("\n");
}

// A line for each change, for pipes: most results say what the one before them said.
void WatchLines(CCommandContext& context, CServiceClient& service) {
    const std::string status = service.Status();
    context.Terminal().Print(context.Options().json ? status + "\n" : StatusText(context, status, false));
    std::map<std::string, std::string> shown;  // the line of each component, by its name
    const auto isNew = [&](const CRapidJsonUtil::value& component) {
        const auto* name = CRapidJsonUtil::Find(component, "name");
        const std::string line = ComponentLine(context, component);
        return name != nullptr && std::exchange(shown[JsonText(*name)], line) != line;
    };
    const CRapidJsonUtil::Document document = ParseJson(status);
    const auto* components = CRapidJsonUtil::Find(document, "components");
    if (components != nullptr && components->IsArray()) {
        std::for_each(components->Begin(), components->End(), isNew);
    }
    CEnd end;
    while (!end.HasCome()) {
        const std::string result = WaitForResult(service, kRedraw, end);
        if (result.empty()) {
            continue;
        }
        const CRapidJsonUtil::Document component = ParseJson(result);
        if (isNew(component)) {
            context.Terminal().Print(context.Options().json ? result + "\n" : ComponentLine(context, component));
        }
    }
}

}  // namespace

Outcome RunSubmit(CCommandContext& context, const CommandArguments& arguments) {
    constexpr std::uint32_t kUnknown = 3;
    const auto status = ParseNumber(arguments.words[1]);
    if (!status || *status > kUnknown) {
        throw CUsageError("The status is that of a plugin: 0 OK, 1 warning, 2 critical, 3 unknown.");
    }
    return ComponentOutcome(context, context.Service().Query("{\"submit\":{\"name\":" + JsonString(arguments.words[0]) +
                                                                 ",\"status\":" + std::to_string(*status) +
                                                                 ",\"text\":" + JsonString(arguments.words[2]) + "}}",
                                                             "submitted", "component"));
}

Outcome RunCheck(CCommandContext& context, const CommandArguments& arguments) {
    return ComponentOutcome(
        context, context.Service().Query("{\"check\":" + JsonString(arguments.words[0]) + "}", "checked", "component"));
}

Outcome RunWatch(CCommandContext& context, const CommandArguments& /*arguments*/) {
    CServiceClient& service = context.Service();
    try {
        service.Subscribe();
        if (::isatty(STDOUT_FILENO) == 1 && !context.Options().json) {
            WatchScreen(context, service);
        } else {
            WatchLines(context, service);
        }
    } catch (const CBrokenOff&) {
        // Ctrl-C ends a view, also while the service has yet to answer.
    }
    service.HangUp();
    Outcome outcome;
    outcome.isTold = true;
    return outcome;
}
