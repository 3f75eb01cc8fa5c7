// SPDX-License-Identifier: Apache-2.0
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include <gtest/gtest.h>

#include "em_alert/EmAlert.h"
#include "em_alert/alert/AlertExtensionModule.h"
#include "em_alert/frame/ExtensionModuleBase.h"
#include "em_alert/frame/ModuleInstance.h"
#include "support/FakeSwitch.h"
#include "support/TraceCapture.h"

namespace {

using Calls = std::vector<std::string>;

class CPlainModule : public CExtensionModule {
public:
    const char* GetName() const override { return "EM_TEST"; }
    int OnModuleNotification(unsigned int code, void* p1, void* p2) override {
        return static_cast<int>(code & 0xFF) + (p2 > p1 ? 100 : 0);
    }
    using CExtensionModule::IsSwitchShutdown;
    using CExtensionModule::ModuleId;
};

class CExposedTasks : public CAlertExtensionModule {
public:
    using CAlertExtensionModule::OnTaskExecution;
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

/// A file of expectations.
std::string Expected(const char* name) {
    std::ifstream file(std::string(EM_DATA) + name);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string StatusOf(const SipJson& message) {
    return std::to_string(message.GetCmdElemValue(message.GetCmdIndex(), "ST", 999));
}

}  // namespace

TEST_F(ModuleFrame, WithoutSwitchNothingIsSentAndRequestsSaySo) {
    SipJson request = MessageOf(R"({"OC":1})");
    module_.SyncRequest(request, 5000);
    EXPECT_EQ(StatusOf(request), "6");
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

TEST_F(ModuleFrame, WhatAModuleDoesNotDoItselfIsNotDone) {
    CExtensionModule base;
    CIExtensionModule& module = base;
    SipJson request = MessageOf(R"({"OC":1})");
    _ExtensionModuleProperties properties{};
    unsigned int* list = nullptr;
    unsigned char count = 0;
    unsigned int number = 0;
    EXPECT_FALSE(module.GetProperties(properties) || module.CommandToDevice(request) ||
                 module.CommandToDevice(1, 2, 3, 4, nullptr, 0) || module.CommandToSe(request, 1, 2) ||
                 module.CommandToSe(1, 2, 3, 4, nullptr, 0, 5, 6) || module.GetServerSeList(&list, count) ||
                 module.SetServerSeList(list, count) || module.GetServerCabinetNumber(number) ||
                 module.ModuleRequest(request));
    EXPECT_EQ(StatusOf(request), "1");
    EXPECT_TRUE(module.DetectHardware() && module.Stop());
    EXPECT_EQ(module.OnModuleNotification(1, nullptr, nullptr), 0);
    EXPECT_STREQ(module.GetName(), "EM_XXX");
}

TEST_F(ModuleFrame, RequestsAndEventsGoThroughTheSwitch) {
    module_.Start(&agent_, 0x00050003);
    EXPECT_EQ(agent_.runModeQueries, 1U);  // though nothing is traced
    EXPECT_EQ(module_.ModuleId(), 0x00050003U);
    SipJson bare = MessageOf(R"({"OC":1})");
    module_.SyncRequest(bare, 5000);
    SipJson addressed = MessageOf(R"({"OC":1,"CA":0})");  // not the own one
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
    moduleInstance.serverCabinetNumber = 0;
    SipJson onlyServer = MessageOf(R"({"OC":1})");
    module_.SyncRequest(onlyServer, 5000);
    std::string calls;
    for (const std::string& call : agent_.calls) {
        calls += call + "\n";
    }
    EXPECT_EQ(calls, Expected("calls"));
}

TEST_F(ModuleFrame, AnEventCarriesItsMarkOnlyOnTheWay) {
    module_.Start(&agent_, 0);
    SipJson withStatus = MessageOf(R"({"OC":1,"ST":3})");
    SipJson without = MessageOf(R"({"OC":1})");
    module_.FireEvent(withStatus);
    module_.FireEvent(without);
    EXPECT_EQ(agent_.calls, (Calls{R"(deliver [{"OC":1,"ST":255}])", R"(deliver [{"OC":1,"ST":255}])"}));
    EXPECT_EQ(StatusOf(withStatus) + " " + StatusOf(without), "3 22");
}

/// Each line of the list says whether a command is for the local server, whether it is for that or for all, and which.
TEST_F(ModuleFrame, TellsLocalFromForeignRequests) {
    EXPECT_TRUE(CExtensionModule::IsLocalServerRequest(SipJson()));
    std::istringstream list(Expected("local-commands"));
    int rows = 0;
    for (std::string line; std::getline(list, line); ++rows) {
        const SipJson message = MessageOf(line.substr(4));
        EXPECT_EQ(CExtensionModule::IsLocalServerRequest(message), line[0] == '1') << line;
        EXPECT_EQ(CExtensionModule::IsLocalServerReply(message), line[0] == '1') << line;
        EXPECT_EQ(CExtensionModule::IsLocalServerRequestOrCabinetBroadcast(message), line[2] == '1') << line;
    }
    EXPECT_EQ(rows, 10);
}

TEST_F(ModuleFrame, RunModes) {
    module_.Start(&agent_, 0);
    std::ostringstream modes;
    for (const unsigned int mode : {1U, 5U, 8U, 9U, 10U, 11U, 26U}) {
        agent_.runMode = mode;
        modes << mode << " agentless " << module_.IsAgentlessMode() << " updates " << module_.IsUMEMode() << " "
              << module_.GetSysLogName() << "\n";
    }
    EXPECT_EQ(modes.str(), Expected("run-modes"));
}

TEST_F(ModuleFrame, NotificationsReachTheModuleAlsoWithTracingOff) {
    EXPECT_EQ(module_.Notify(0x40003, nullptr, &module_), 103);
    EXPECT_FALSE(module_.IsSwitchShutdown());
    EXPECT_EQ(module_.Notify(SCN_SWITCH_SHUTDOWN, nullptr, nullptr), 0);
    EXPECT_TRUE(module_.IsSwitchShutdown());
    EXPECT_TRUE(module_.Start(&agent_, 7) && module_.IsSwitchShutdown());  // for good
}

TEST_F(ModuleFrame, MessagesAreTracedByTheirData) {
    const CTraceCapture trace;
    std::ifstream cases(EM_DATA "message-traces");
    for (std::string command, line; std::getline(cases, command) && std::getline(cases, line);) {
        module_.TraceRequestIn(MessageOf(command), 2);
        EXPECT_EQ(Escaped(trace.Prints().back()), line) << command;
    }
    EXPECT_EQ(trace.Prints().size(), 9U);
    SipJson two = MessageOf(R"({"OC":4,"CA":7,"ST":1,"DA":5},{"OC":5,"ST":2})");
    two.SetCmdIndex(1);
    module_.TraceReply(two, 2);
    EXPECT_EQ(trace.Prints().back(), "\nEM_TEST (RPL)       : OC 0x0005-0x0000 OID 0x0000 MID 0x00000000 Stat 0x02");
}

TEST_F(ModuleFrame, ExportsTraceWhatTheyDo) {
    agent_.runMode = 5;
    const auto actions = [this] {
        CIExtensionModule* module = nullptr;
        EXPECT_FALSE(EM_Delete());
        EXPECT_FALSE(EM_Create(nullptr, nullptr));
        EXPECT_TRUE(EM_Create(&module, nullptr) && EM_Create(&module, nullptr) && EM_Delete());
        for (const unsigned int action : {0U, 1U, 2U, 3U, 4U, 5U}) {
            EXPECT_EQ(EM_SetupAction(action), 1);
        }
        EXPECT_TRUE(module_.SetServerCabinetNumber(7) && moduleInstance.serverCabinetNumberKnown);
        module_.Start(&agent_, 1);
        module_.Notify(0x30000, reinterpret_cast<void*>(5), reinterpret_cast<void*>(6));
        EXPECT_EQ(module_.Notify(0x12345, nullptr, nullptr), 0x45);
    };
    EXPECT_EQ(TracesByLevel(actions), Expected("export-traces"));
    EXPECT_EQ(moduleInstance.module, nullptr);
}

/// The agent may answer behind its request.
TEST_F(ModuleFrame, AnAnswerIsReadFromTheCommandThatIsCurrentThen) {
    agent_.answer = [](SipJson& message) {
        const bool isNumber = message.GetElem("OC") == kReadSystemStatus;
        message.SetStatus(kNotHandled);
        message.SetCmdIndex(1);
        isNumber ? message.SetDataUIntValue(2, kDone) : message.SetReplyDataString("text", kDone);
    };
    CAlertExtensionModule module;
    module.Start(&agent_, 0);
    const CTraceCapture trace;
    for (const char* members : {R"("OC":57346,"OE":1040,"DA":1)",
                                R"-("OC":57346,"OE":1046,"DA":"$(ComponentName) $(SystemModel)")-", R"("OC":8994)"}) {
        SipJson message = MessageOf(std::string("{") + members + "}");
        module.ApplicationReply(message);
    }
    EXPECT_TRUE(trace.Has("added to pending alerts (1)") && trace.Has("Add mail subject \"text text\""));
    CLumeString text("$(UpdateMessage) $(SystemStatus)");
    module.AlerterFormatUpdateStatusText(text, CLogMsgArguments());
    EXPECT_EQ(text, "text text");
}

/// What the file of answers does not hold has no answer.
TEST_F(ModuleFrame, MailServersOfTheManagementControllerAreImported) {
    agent_.answer = [](SipJson& request) {
        std::istringstream answers(Expected("zelcon-answers"));
        for (std::string line; std::getline(answers, line);) {
            SipJson answer = MessageOf(line);
            if (answer.GetCmdElemValue(0, "OE", 0) == request.GetCmdElemValue(0, "OE", 0) &&
                answer.GetCmdElemValue(0, "OI", 0) == request.GetCmdElemValue(0, "OI", 0)) {
                request = answer;
                return;
            }
        }
    };
    CAlertExtensionModule module;
    module.Start(&agent_, 0);
    SmtpSettingsMap servers;
    std::ostringstream result;
    result << TracesByLevel([&] {
        agent_.calls.clear();
        servers.clear();
        module.ImportZelconSmtpSettings(servers);
    });
    for (const std::string& call : agent_.calls) {
        result << call << "\n";
    }
    for (const auto& [key, server] : servers) {
        result << key.c_str() << " " << server.host << " " << server.port << "\n";
    }
    EXPECT_EQ(result.str(), Expected("zelcon-import"));
    agent_.answer = [](SipJson&) {};
    servers.clear();
    module.ImportZelconSmtpSettings(servers);
    EXPECT_EQ(servers.size(), 2U);
}

TEST_F(ModuleFrame, OperationsOfTheAlertModule) {
    std::ostringstream result;
    const AlertSettings settings;
    for (const auto& sequence : {settings.beepWarningSequence, settings.beepErrorSequence}) {
        std::vector<std::uint32_t> numbers(sequence.size() / sizeof(std::uint32_t));
        std::memcpy(numbers.data(), sequence.data(), sequence.size());
        std::ranges::copy(numbers, std::ostream_iterator<std::uint32_t>(result, " "));
        result << "\n";
    }
    const CTraceCapture trace;
    CExposedTasks module;
    SipJson alert = MessageOf(R"({"OC":1})");
    SipJson beepOn = MessageOf(R"({"OC":57346,"OE":1024,"DA":1})");
    module.ApplicationReply(beepOn);
    for (const unsigned char status : std::initializer_list<unsigned char>{0, 1, 2, 3, 4, 255}) {
        std::string system;
        std::string component;
        const auto severity = CAlertExtensionModule::SystemStatusToAlertSeverity(status);
        result << +status << " severity " << severity << ", of a log message "
               << CAlertExtensionModule::LogMsgSeverityToAlertSeverity(status) << ", beeps "
               << module.BeepSequenceOn(severity) << ", system " << module.SystemStatusToString(system, status)
               << ", component " << module.ComponentStatusToString(component, status) << "\n";
    }
    result << module.AcknowledgeAlert(alert) << " leaves it sounding: " << trace.Count("THREAD_RETURN") << "\n";
    module.BeepSequenceOff();
    module.AddPendingAlert(alert);
    SipJson newest;
    result << module.IsAlertPending() << module.GetLastPendingAlert(newest) << newest.GetElem("OC")
           << module.AcknowledgeAlert(alert) << module.IsAlertPending() << module.GetLastPendingAlert(newest) << "\n";
    CLumeString text("$(hostname)");
    module.Start(&agent_, 0);
    SipJson unknown = MessageOf(R"({"OC":1})");
    EXPECT_TRUE(module.InsertTask(unknown, 0, nullptr) && !module.InsertTask(unknown, 1, nullptr));
    module.OnTaskExecution(unknown, CExposedTasks::_TaskPriority{});
    result << agent_.calls.back() << "\n";
    result << CAlertExtensionModule::ContainsVariableName(text, "$(HostName)")
           << CAlertExtensionModule::ContainsVariableName(text, "$(Time)") << module.AlerterFormatText(text)
           << module.AlerterFormatSystemStatusText(text, 1, 1, "", "")
           << module.AlerterFormatUpdateStatusText(text, CLogMsgArguments());
    CSmtpMessage mail;
    result << module.AlerterCreateSystemStatusMail(mail, 1, 1, "", "")
           << module.AlerterCreateUpdateStatusMail(mail, CLogMsgArguments()) << " " << module.AlerterSendMail(mail)
           << "\n";
    EXPECT_EQ(result.str(), Expected("operations"));
    EXPECT_TRUE(module.Stop());
    EXPECT_FALSE(module.BeepSequenceOn(AlerterSeverityWarning) || DeleteExtensionModule(nullptr));
}
