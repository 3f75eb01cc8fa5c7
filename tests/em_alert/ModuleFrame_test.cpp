#include <algorithm>
#include <fstream>
#include <functional>

#include <gtest/gtest.h>

#include "em_alert/EmAlert.h"
#include "em_alert/ExtensionModuleBase.h"
#include "em_alert/ModuleInstance.h"
#include "support/FakeSwitch.h"
#include "support/TraceCapture.h"

namespace {

using Calls = std::vector<std::string>;

class CPlainModule : public CExtensionModule {
public:
    const char* GetName() const override { return "EM_TEST"; }
    int OnModuleNotification(unsigned int code, void* /*p1*/, void* /*p2*/) override {
        return static_cast<int>(code & 0xFF);
    }
    using CExtensionModule::IsSwitchShutdown;
};

class ModuleFrame : public ::testing::Test {
protected:
    void SetUp() override { moduleInstance.serverCabinetNumber = 7; }

    CFakeSwitch agent_;
    CPlainModule module_;
};

/// New lines become "\\n".
std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        escaped += c == '\n' ? "\\n" : std::string(1, c);
    }
    return escaped;
}

/// The module's prints while `action` runs, each behind the trace level from which on it is made.
std::string Traced(const std::function<void()>& action) {
    std::vector<std::string> seen;
    std::string traced;
    for (unsigned int level = 1; level <= 4; ++level) {
        const CTraceCapture trace(level);
        action();
        for (const std::string& print : trace.Prints()) {
            if (print.find("EM_") != std::string::npos && std::find(seen.begin(), seen.end(), print) == seen.end()) {
                seen.push_back(print);
                traced += std::to_string(level) + " " + Escaped(print) + "\n";
            }
        }
    }
    return traced;
}

std::string Status(const SipJson& message) {
    return std::to_string(message.GetCmdElemValue(message.GetCmdIndex(), "ST", 999));
}

}  // namespace

TEST_F(ModuleFrame, WithoutSwitchNothingIsSentAndRequestsSaySo) {
    SipJson request = MessageOf(R"({"OC":1})");
    module_.SyncRequest(request, 5000);
    EXPECT_EQ(Status(request), "6");
    EXPECT_FALSE(request.HasCmdElem(0, "CA"));
    SipJson noCommand = MessageOf("5");
    module_.AsyncRequest(noCommand);
    EXPECT_EQ(noCommand.GetCmd().GetInt(), 5);

    EXPECT_FALSE(module_.ReplySip(request) || module_.ModuleReply(request) || module_.EnableEvents(true) ||
                 module_.DisableEvents() || module_.ForwardEvent(request) || module_.IsAgentlessMode() ||
                 module_.IsUMEMode());
    EXPECT_EQ(module_.GetRunMode(), 0U);
    EXPECT_STREQ(module_.GetSysLogName(), "Hostwarden Server Control");
}

TEST_F(ModuleFrame, RequestsAndEventsGoThroughTheSwitch) {
    module_.Start(&agent_, 0x00050003);
    EXPECT_EQ(agent_.runModeQueries, 1U);  // though nothing is traced
    SipJson bare = MessageOf(R"({"OC":1})");
    module_.SyncRequest(bare, 5000);
    SipJson addressed = MessageOf(R"({"OC":1,"CA":5})");
    module_.AsyncRequest(addressed);
    module_.SyncCabinetBroadcast(bare, 1);
    EXPECT_FALSE(CExtensionModule::IsLocalServerRequest(bare));
    EXPECT_TRUE(CExtensionModule::IsLocalServerRequestOrCabinetBroadcast(bare));
    module_.SyncModuleBroadcast(addressed, 2);
    module_.ReplySip(addressed);
    module_.EnableEvents(true);
    module_.DisableEvents();
    SipJson forwarded = MessageOf(R"({"OC":2,"MI":196612})");
    EXPECT_TRUE(module_.ForwardEvent(forwarded));
    EXPECT_EQ(
        agent_.calls,
        (Calls{R"(sync 5000 [{"OC":1,"CA":7}])", R"(async 0 [{"OC":1,"CA":5}])", R"(sync 1 [{"OC":1,"CA":4294967295}])",
               R"(sync 2 [{"OC":1,"CA":5,"MI":4294967295}])", R"(deliver [{"OC":1,"CA":5,"MI":4294967295}])", "enable",
               "disable", R"(forward 3 4 [{"OC":2,"MI":196612}])"}));
}

TEST_F(ModuleFrame, AnEventCarriesItsMarkOnlyOnTheWay) {
    module_.Start(&agent_, 0);
    SipJson withStatus = MessageOf(R"({"OC":1,"ST":3})");
    SipJson without = MessageOf(R"({"OC":1})");
    module_.FireEvent(withStatus);
    module_.FireEvent(without);
    EXPECT_EQ(agent_.calls, (Calls{R"(deliver [{"OC":1,"ST":255}])", R"(deliver [{"OC":1,"ST":255}])"}));
    EXPECT_EQ(Status(withStatus) + " " + Status(without), "3 22");
}

TEST_F(ModuleFrame, TellsLocalFromForeignRequests) {
    struct Case {
        const char* command;
        bool isLocal, isBroadcast;
    };
    EXPECT_TRUE(CExtensionModule::IsLocalServerRequest(SipJson()));
    for (const Case& c :
         {Case{"null", true, false}, Case{"{}", true, false}, Case{R"({"CA":7})", true, false},
          Case{R"({"CA":"0x07"})", true, false}, Case{R"({"CA":8})", false, false}, Case{R"({"CA":0})", false, false},
          Case{R"({"CA":null})", false, false}, Case{R"({"CA":[7]})", false, false},
          Case{R"({"CA":true})", false, false}, Case{R"({"CA":4294967295})", false, true}}) {
        const SipJson message = MessageOf(c.command);
        EXPECT_EQ(CExtensionModule::IsLocalServerRequest(message), c.isLocal) << c.command;
        EXPECT_EQ(CExtensionModule::IsLocalServerReply(message), c.isLocal) << c.command;
        EXPECT_EQ(CExtensionModule::IsLocalServerRequestOrCabinetBroadcast(message), c.isLocal || c.isBroadcast)
            << c.command;
    }
}

TEST_F(ModuleFrame, RunModes) {
    module_.Start(&agent_, 0);
    struct Case {
        unsigned int mode;
        bool agentless, updates;
        const char* name;
    };
    for (const Case& c :
         {Case{1, false, false, "Hostwarden Server Control"}, Case{5, true, false, "Hostwarden Agentless Service"},
          Case{8, false, true, "Hostwarden Server Control"}, Case{10, true, true, "Hostwarden Server Control"}}) {
        agent_.runMode = c.mode;
        EXPECT_EQ(module_.IsAgentlessMode(), c.agentless) << c.mode;
        EXPECT_EQ(module_.IsUMEMode(), c.updates) << c.mode;
        EXPECT_STREQ(module_.GetSysLogName(), c.name) << c.mode;
    }
}

TEST_F(ModuleFrame, NotificationsReachTheModuleAlsoWithTracingOff) {
    EXPECT_EQ(module_.Notify(0x40003, nullptr, nullptr), 3);
    EXPECT_FALSE(module_.IsSwitchShutdown());
    EXPECT_EQ(module_.Notify(SCN_SWITCH_SHUTDOWN, nullptr, nullptr), 0);
    EXPECT_TRUE(module_.IsSwitchShutdown());
}

TEST_F(ModuleFrame, MessagesAreTracedByTheirData) {
    const CTraceCapture trace;
    std::ifstream cases(EM_DATA "message-traces");
    for (std::string command, line; std::getline(cases, command) && std::getline(cases, line);) {
        module_.TraceRequestIn(MessageOf(command), 2);
        EXPECT_EQ(Escaped(trace.Prints().back()), line) << command;
    }
    EXPECT_EQ(trace.Prints().size(), 9U);
}

TEST_F(ModuleFrame, ExportsTraceWhatTheyDo) {
    CIExtensionModule* module = nullptr;
    agent_.runMode = 5;
    std::string traced;
    for (const std::function<void()>& action : std::initializer_list<std::function<void()>>{
             [&] { EXPECT_FALSE(EM_Delete()); },
             [&] { EXPECT_FALSE(EM_Create(nullptr, nullptr)); },
             [&] { EXPECT_TRUE(EM_Create(&module, nullptr) && EM_Create(&module, nullptr) && EM_Delete()); },
             [&] {
                 for (const unsigned int action : {0U, 1U, 2U, 3U, 4U, 5U}) {
                     EXPECT_EQ(EM_SetupAction(action), 1);
                 }
             },
             [&] { module_.SetServerCabinetNumber(7); },
             [&] { module_.Start(&agent_, 1); },
             [&] { module_.Notify(0x30000, reinterpret_cast<void*>(5), reinterpret_cast<void*>(6)); },
             [&] { EXPECT_EQ(module_.Notify(0x12345, nullptr, nullptr), 0x45); },
         }) {
        traced += Traced(action);
    }
    std::ifstream expected(EM_DATA "export-traces");
    EXPECT_EQ(traced, std::string(std::istreambuf_iterator<char>(expected), {}));
    EXPECT_EQ(moduleInstance.module, nullptr);
}
