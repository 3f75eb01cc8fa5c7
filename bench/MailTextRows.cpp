#include <absl/strings/str_replace.h>
#include <sys/utsname.h>

#include "bench/Row.h"
#include "mail/AlertMailTexts.h"
#include "mail/DateTime.h"
#include "platform/HostIpAddress.h"
#include "platform/OsInfo.h"

namespace {

constexpr const char* kAgentText = "a text of the agent";
constexpr const char* kName = "CPU 1 fan";
constexpr const char* kDesignation = "Fan 1";

/// An agent that knows everything, at once.
class CReadyAgent final : public CIAgentValues {
public:
    bool RequestText(unsigned int, unsigned int, unsigned int, std::string& text) override {
        text = kAgentText;
        return true;
    }
    bool RequestNumber(unsigned int, unsigned int, unsigned int, unsigned int& number) override {
        number = 2;
        return true;
    }
    bool RequestMessageTemplate(std::uint32_t, std::string& messageTemplate) override {
        messageTemplate = kAgentText;
        return true;
    }
};

struct Token {
    const char* name;
    std::string value;
};

/// All variables of a status mail, with values from where the module takes them, each source asked once.
std::vector<Token> AllTokens() {
    utsname names{};
    ::uname(&names);
    std::string fullName;
    COsInfo::GetComputerNameEx(fullName, ComputerNamePhysicalDnsFullyQualified);
    CIPAddress v4;
    CHostIPAddress::GetHostIPv4Address(v4, 0);
    CIPAddress v6;
    CHostIPAddress::GetHostIPv6Address(v6, 0);
    const std::string now = CDateTime::Format("%Y-%m-%d-%H.%M.%S", CDateTime::LocalNow());
    return {
        {"$(SystemStatus)", kAgentText},
        {"$(ComponentName)", kName},
        {"$(ComponentDesignation)", kDesignation},
        {"$(ComponentStatus)", kAgentText},
        {"$(Date)", kAgentText},
        {"$(Time)", kAgentText},
        {"$(HostName)", names.nodename},
        {"$(HostNameFQ)", fullName},
        {"$(HostIPAddress)", v4.GetString()},
        {"$(HostIPv4Address)", v4.GetString()},
        {"$(HostIPv6Address)", v6.GetString()},
        {"$(SystemModel)", kAgentText},
        {"$(SystemSerialNr)", kAgentText},
        {"$(SystemAssetID)", kAgentText},
        {"$_SRV", names.nodename},
        {"$_IPA", v4.GetString()},
        {"$_TIM", now},
        {"$_IDN", kAgentText},
    };
}

/// Prose with every variable in each 1024 bytes.
std::string Template(std::size_t bytes) {
    std::string kilobyte;
    for (const Token& token : AllTokens()) {
        kilobyte += "The value of the next word comes from the server: " + std::string(token.name) + "\n";
    }
    std::string text;
    while (text.size() < bytes) {
        text += kilobyte;
    }
    text.resize(bytes);
    return text;
}

std::string Repeated(std::string_view text, int times) {
    std::string repeated;
    for (int i = 0; i < times; ++i) {
        repeated += text;
    }
    return repeated;
}

void TextProject(benchmark::State& state, const std::string& original) {
    CReadyAgent agent;
    CAlertMailTexts texts({}, agent);
    Measure(state, [&] {
        CLumeString text(original);
        texts.FormatSystemStatusText(text, 2, 2, kName, kDesignation);
        benchmark::DoNotOptimize(text);
    });
}

void TextFloor(benchmark::State& state, const std::string& original) {
    Measure(state, [&] {
        std::string text(original);
        for (const Token& token : AllTokens()) {
            absl::StrReplaceAll({{token.name, token.value}}, &text);
        }
        benchmark::DoNotOptimize(text);
    });
}

}  // namespace

void AddMailTextRows() {
    for (const auto& [row, bytes] : {std::pair("mail-text/1KB", 1024), std::pair("mail-text/64KB", 65536)}) {
        AddRow(
            row, Clock::Cpu, [size = bytes](benchmark::State& state) { TextProject(state, Template(size)); },
            [size = bytes](benchmark::State& state) { TextFloor(state, Template(size)); });
    }
    AddRow(
        "mail-text/ten-times-the-tokens", Clock::Cpu,
        [](benchmark::State& state) { TextProject(state, Repeated("$(ComponentName) ", 10000)); },
        [](benchmark::State& state) { TextProject(state, Repeated("$(ComponentName) ", 1000)); });
}
