#include "mail/AlertMailTexts.h"

#include <cstdlib>
#include <map>
#include <tuple>

#include <gtest/gtest.h>

#include "StandInHost.h"
#include "mail/DateTime.h"
#include "support/TraceCapture.h"

namespace {

/// An agent that knows a few texts and remembers what it is asked.
class CFakeAgent final : public CIAgentValues {
public:
    std::map<std::tuple<unsigned, unsigned, unsigned>, std::string> texts = {
        {{0x0C00, 0x1508, 0}, "Tower"},    {{0x0C00, 0x0600, 0}, "SN1"},   {{0xE001, 0x0210, 0}, "rack"},
        {{0xE001, 0x0421, 0}, "gut"},      {{0xE001, 0x0424, 9}, "today"}, {{0xE001, 0x0425, 0}, "noon"},
        {{0xE001, 0x0422, 9}, "Vorsicht"},
    };
    std::string messageTemplate = "%1 of %2%%, %3x%";
    unsigned status = 3;
    std::string requests;  // "code-extension-object " each

    bool RequestText(unsigned oc, unsigned oe, unsigned oi, std::string& text) override {
        Remember(oc, oe, oi);
        const auto found = texts.find({oc, oe, oi});
        if (found != texts.end()) {
            text = found->second;
        }
        return found != texts.end();
    }
    bool RequestNumber(unsigned oc, unsigned oe, unsigned oi, unsigned& number) override {
        Remember(oc, oe, oi);
        number = status;
        return !texts.empty();
    }
    bool RequestMessageTemplate(std::uint32_t errorCode, std::string& text) override {
        Remember(errorCode, 0, 0);
        text = messageTemplate;
        return errorCode == 0x290012;
    }

private:
    void Remember(unsigned oc, unsigned oe, unsigned oi) {
        CLumeString request;
        request.Format("%X-%X-%u ", oc, oe, oi);
        requests += request;
    }
};

MailSettings Settings() {
    MailSettings settings;
    settings.senderAddress = "ops";
    settings.recipients = "anna;bert";
    settings.language = 9;
    return settings;
}

/// A record of error code 0x290012 that claims a length and a count of arguments.
CLogMsgArguments Record(unsigned char length, unsigned char count, const std::string& arguments) {
    std::vector<unsigned char> record(CLogMsgArguments::kHeaderSize);
    record[0] = length;
    record[4] = 0x12;
    record[6] = 0x29;
    record[25] = count;
    record.insert(record.end(), arguments.begin(), arguments.end());
    return CLogMsgArguments(record);
}

/// `lines`, each as the module traces it.
std::string Traces(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += "\nEM_ALERT            : " + line;
    }
    return text;
}

class AlertMailTexts : public ::testing::Test {
protected:
    AlertMailTexts() { host = Host(); }
    std::string Format(const std::string& text, MailSettings settings = Settings()) {
        CLumeString result(text);
        CAlertMailTexts(settings, agent_).FormatText(result);
        return result;
    }
    std::string FormatStatus(const std::string& text, unsigned char system, unsigned char component,
                             const std::string& name) {
        CLumeString result(text);
        CAlertMailTexts(Settings(), agent_).FormatSystemStatusText(result, system, component, name, "rear");
        return result;
    }
    std::string FormatUpdate(const std::string& text, const CLogMsgArguments& record) {
        CLumeString result(text);
        CAlertMailTexts(Settings(), agent_).FormatUpdateStatusText(result, record);
        return result;
    }

    CFakeAgent agent_;
};

}  // namespace

TEST_F(AlertMailTexts, EveryVariableHasItsValueAndItsTurn) {
    const CTraceCapture trace(3);
    EXPECT_EQ(
        FormatStatus("$_IDN|$_TIM|$_IPA|$_SRV|$(SystemAssetID)|$(systemserialnr)|$(SYSTEMMODEL)|$(HostIPv6Address)|"
                     "$(HostIPv4Address)|$(HostIPAddress)|$(HostNameFQ)|$(HostName)|$(TIME)|$(Date)|"
                     "$(UpdateMessage)|$(ComponentStatus)|$(ComponentDesignation)|$(ComponentName)|$(SystemStatus)",
                     2, 1, "FAN"),
        "SN1|1970-01-01-05.30.00|10.20.30.40|alpha|rack|SN1|Tower|fd00::5|10.20.30.40|10.20.30.40|"
        "alpha.example.net|alpha|noon|today|$(UpdateMessage)|gut|rear|FAN|Vorsicht");
    EXPECT_EQ(agent_.requests,
              "E001-422-9 E001-421-9 E001-421-0 E001-424-9 E001-425-9 E001-425-0 C00-1508-0 C00-600-0 E001-210-0 "
              "C00-600-0 ");
    EXPECT_EQ(trace.All(),
              Traces({"Request translated system status message from Vortal CSV ID 0x0422 with LANGID 0x9 (9)",
                      "Read system status message for status 2 using Vortal OpCodeExt 0x0422: \"Vorsicht\"",
                      "Param $(SystemStatus): \"Vorsicht\"",
                      "Param $(ComponentName): \"FAN\"",
                      "Param $(ComponentDesignation): \"rear\"",
                      "Read component status string for statud 1 using Vortal OpCodeExt 0x421: \"gut\"",
                      "Param $(ComponentStatus): \"gut\"",
                      "Param $(Date): \"today\"",
                      "Param $(Time): \"noon\"",
                      "Param $(HostName): \"alpha\"",
                      "Param $(HostNameFQ): \"alpha.example.net\"",
                      "Param $(HostIPAddress): \"10.20.30.40\"",
                      "Param $(HostIPv4Address): \"10.20.30.40\"",
                      "Param $(HostIPv6Address): \"fd00::5\"",
                      "Param $(SystemModel): \"Tower\"",
                      "Param $(SystemSerialNr): \"SN1\"",
                      "Param $(SystemAssetID): \"rack\"",
                      "Quillon param $_SRV: \"alpha\"",
                      "Quillon param $_IPA: \"10.20.30.40\"",
                      "Quillon param $_TIM: \"1970-01-01-05.30.00\"",
                      "Quillon param $_IDN: \"SN1\""}));
}

TEST_F(AlertMailTexts, WhatIsNotThereStaysOrLeavesTheTextEmpty) {
    const std::string values = "$(HostName)$_SRV|$(HostIPAddress)|$(HostIPv4Address)|$(HostIPv6Address)|$_IPA";
    host.ipv4 = "";
    EXPECT_EQ(Format(values), "alphaalpha|fd00::5||fd00::5|fd00::5");
    host.ipv6 = "";
    host.nodeName = nullptr;
    EXPECT_EQ(Format(values), "$(HostName)$_SRV||||");
    EXPECT_EQ(Format("$(ComponentName) $(UpdateMessage) $(Unknown) $(Date $_"),
              "$(ComponentName) $(UpdateMessage) $(Unknown) $(Date $_");
    EXPECT_EQ(agent_.requests, "");
    agent_.texts.clear();
    EXPECT_EQ(Format("<$(SystemModel)$_IDN$(SystemSerialNr)$(SystemAssetID)$(SystemStatus)>"), "<>");
}

TEST_F(AlertMailTexts, LocalTimeKnowsTheZoneAndSummerTime) {
    const struct {
        const char* zone;
        std::time_t now;
        long offset;
        const char* time;
    } cases[] = {
        {"Europe/Berlin", 1774745999, 3600, "2026-03-29-01.59.59"},
        {"Europe/Berlin", 1774746000, 7200, "2026-03-29-03.00.00"},
        {"Europe/Berlin", 1792889999, 7200, "2026-10-25-02.59.59"},
        {"Europe/Berlin", 1792890000, 3600, "2026-10-25-02.00.00"},
        {"America/St_Johns", 1767225600, -12600, "2025-12-31-20.30.00"},
        {"America/St_Johns", 1782864000, -9000, "2026-06-30-21.30.00"},
        {"Asia/Kolkata", 1782864000, 19800, "2026-07-01-05.30.00"},
        {"UTC", 1782864000, 0, "2026-07-01-00.00.00"},
    };
    for (const auto& c : cases) {
        ::setenv("TZ", c.zone, 1);
        host.now = c.now;
        EXPECT_EQ(CDateTime::LocalTimeOffset(), c.offset) << c.zone;
        EXPECT_EQ(Format("$_TIM"), c.time) << c.zone;
    }
    ::setenv("TZ", "Asia/Kolkata", 1);
}

TEST_F(AlertMailTexts, LocalFormsStandInForTheAgentsDateAndTime) {
    const struct {
        std::uint16_t language;
        const char* locale;
        const char* text;
    } cases[] = {
        {1031, "German", "German%#x 2026-03-01 04:05:06|German%#X 2026-03-01 04:05:06"},
        {1036, "French", "French%#x 2026-03-01 04:05:06|French%#X 2026-03-01 04:05:06"},
        {1041, "Japanese", "2026年03月01日|04:05:06"},
        {3084, "French_Canada", "French_Canada%#x 2026-03-01 04:05:06|French_Canada%#X 2026-03-01 04:05:06"},
        {1033, "English", "English%#x 2026-03-01 04:05:06|English%#X 2026-03-01 04:05:06"},
        {0, "English", "English%#x 2026-03-01 04:05:06|English%#X 2026-03-01 04:05:06"},
    };
    host.now = 1772318106;  // 2026-02-28 22:35:06 UTC
    MailSettings settings = Settings();
    for (const auto& c : cases) {
        host.locales.clear();
        agent_.texts = {{{0xE001, 0x0424, c.language}, ""}};  // no more than no answer
        settings.language = c.language;
        EXPECT_EQ(Format("$(Date)|$(Time)", settings), c.text) << c.language;
        EXPECT_EQ(host.locales, c.locale + std::string(" C ") + c.locale + " C ");
    }
    EXPECT_TRUE(agent_.requests.ends_with(" E001-424-0 E001-425-0 "))
        << agent_.requests;  // once where there is no language

    const CTraceCapture trace(3);
    for (const std::size_t length : {89, 90}) {  // "English%#x " goes before
        host.form = std::string(length - 1, 'x');
        EXPECT_EQ(Format("$(Date)", settings), length == 89 ? "English%#x " + host.form : "");
        EXPECT_EQ(host.locale, "C");
    }
    EXPECT_EQ(
        trace.All().substr(0, trace.All().find("Param")),
        Traces({"Reading format date from locale for LANGID 0x0 (0)",
                "Set date/time locale for Vortal locale ID 0x0 (0):", "Date/time locale changed to \"English\"", ""}));
}

TEST_F(AlertMailTexts, StatusWordsAreTranslatedFirstInTheMailsLanguage) {
    const struct {
        unsigned char status;
        const char* words;
        const char* requests;
    } cases[] = {
        {0, "N/A|N/A", ""},
        {1, "gut|gut", "E001-421-9 E001-421-0 E001-421-9 E001-421-0 "},
        {2, "Vorsicht|Vorsicht", "E001-422-9 E001-422-9 "},
        {3, "Critical|Critical", "E001-423-9 E001-423-0 E001-423-9 E001-423-0 "},
        {4, "N/A|Not Present", ""},
        {5, "N/A|Not Manageable", ""},
        {6, "N/A|N/A", ""},
        {255, "N/A|N/A", ""},
    };
    for (const auto& c : cases) {
        const CTraceCapture trace(1);
        agent_.requests.clear();
        EXPECT_EQ(FormatStatus("$(SystemStatus)|$(ComponentStatus)", c.status, c.status, ""), c.words);
        EXPECT_EQ(agent_.requests, c.requests);
        EXPECT_EQ(trace.All(),
                  c.status != 3
                      ? ""
                      : Traces({"Read system status message for status 3 using Vortal OpCodeExt 0x0423 FAILED!"}));
    }
    agent_.requests.clear();
    for (const auto& [status, word] : {std::pair{1U, "gut"}, {5U, "N/A"}, {256U, "N/A"}, {257U, "N/A"}}) {
        agent_.status = status;
        EXPECT_EQ(Format("$(SystemStatus)"), word) << status;
    }
    EXPECT_EQ(agent_.requests, "230F-0-0 E001-421-9 E001-421-0 230F-0-0 230F-0-0 230F-0-0 ");
    agent_.texts.clear();
    for (const auto& [status, words] : {std::pair{1, "Ok|Ok"}, {2, "Warning|Warning"}}) {
        EXPECT_EQ(FormatStatus("$(SystemStatus)|$(ComponentStatus)", static_cast<unsigned char>(status),
                               static_cast<unsigned char>(status), ""),
                  words);
    }
}

TEST_F(AlertMailTexts, AValueIsNotExpandedByItsOwnVariableButByLaterOnes) {
    EXPECT_EQ(FormatStatus("$(ComponentName)", 1, 1, "a $(componentname) $(COMPONENTNAME)"),
              "a $(componentname) $(COMPONENTNAME)");
    EXPECT_EQ(FormatStatus("$(ComponentName)", 1, 1, "$(ComponentDesignation) $(SystemModel)"), "rear Tower");
    EXPECT_EQ(FormatStatus("$(ComponentDesignation) $(ComponentName)", 1, 1, "$(SystemStatus)"), "rear Critical");
}

TEST_F(AlertMailTexts, UpdateMessagesComeFromTheirTemplate) {
    struct Case {
        CLogMsgArguments record;
        const char* messageTemplate;
        const char* message;
    };
    const Case cases[] = {
        {Record(31, 1, std::string("disk\0", 5)), "%1 of %2%%", "disk of %2%"},
        {Record(255, 255, std::string("a\0b", 3)), "%1%2%3%0%", "ab%3%0%"},  // lies about length and count
        {Record(28, 9, std::string("a\0b\0", 4)), "%1%2 %x%%1", "a%2 %x%1"},
        {Record(26, 3, std::string("a\0b\0", 4)), "%1%99999999999", "%1%2147483647"},
        {Record(30, 2, std::string("\0\0", 2)), "<%1%2>", "<>"},
    };
    for (const Case& c : cases) {
        agent_.messageTemplate = c.messageTemplate;
        EXPECT_EQ(FormatUpdate("$(UpdateMessage)", c.record), c.message) << c.messageTemplate;
    }
    EXPECT_EQ(agent_.requests, "290012-0-0 290012-0-0 290012-0-0 290012-0-0 290012-0-0 ");
    const CTraceCapture trace(3);
    EXPECT_EQ(FormatUpdate("$(updatemessage) $(SystemModel)", cases[0].record), "<disk%2> Tower");
    EXPECT_EQ(FormatUpdate("$(UpdateMessage) $(SystemModel)", CLogMsgArguments()), "$(UpdateMessage) Tower");
    const CLogMsgArguments shortRecord(std::vector<unsigned char>(25, 1));
    EXPECT_EQ(FormatUpdate("$(UpdateMessage)", shortRecord), "$(UpdateMessage)");
    EXPECT_EQ(FormatUpdate("text", cases[0].record), "text");
    EXPECT_EQ(
        trace.All(),
        Traces({"Found variable $(UpdateMessage)", "Request message template for update management error code 0x290012",
                "Error Code 0x290012: Found message template: \"<%1%2>\"",
                "Error Code 0x290012: Formatted message: \"<disk%2>\"", "Param $(UpdateMessage): \"<disk%2>\"",
                "Param $(SystemModel): \"Tower\"", "Found variable $(UpdateMessage)",
                "Request message template for update management error code 0x0",
                "ERROR! No message template found for update manager error 0x0", "Param $(SystemModel): \"Tower\""}));
    const CLogMsgArguments none;
    EXPECT_EQ(none.Size(), 26U);
    EXPECT_TRUE(none.IsComplete() && none.Arguments().empty());
}

TEST_F(AlertMailTexts, MailsCarrySenderRecipientsAndImportance) {
    MailSettings settings = Settings();
    settings.senderName = "Alerts";
    settings.recipientsCc = "carl";
    settings.alertSubject = "$(ComponentStatus)\nof $(SystemStatus)";
    settings.alertMessage = "a\nb\r\n$(ComponentName) $(ComponentDesignation)";
    settings.updateSubject = "$(UpdateMessage) $(SystemModel)";
    settings.updateMessage = "$(UpdateMessage) $(SystemStatus)\n";
    CSmtpMessage status;
    std::string traced;
    {
        const CTraceCapture trace(3);
        CAlertMailTexts(settings, agent_).CreateSystemStatusMail(status, 2, 1, "FAN", "rear");
        traced = trace.All();
    }
    EXPECT_EQ(status.GetMessageHeader(),
              "From: Alerts<ops>\r\nTo: anna,bert\r\nCc: carl\r\nSubject: gut of Vorsicht\r\n"
              "X-Priority: 5\r\nImportance: Low\r\n");
    EXPECT_EQ(status.Text(), "a\r\nb\r\nFAN rear");
    EXPECT_EQ(traced.find("\nCSmtpMessageHeader  : Add mail sender: \"Alerts<ops>\""), 0U);
    for (const char* line :
         {"Found mail recipients CC", "Add mail subject \"gut\nof Vorsicht\"", "Add mail text \"a\nb\r\nFAN rear\""}) {
        EXPECT_NE(traced.find(Traces({line})), std::string::npos) << traced;
    }
    CSmtpMessage update;
    settings.senderName = "";
    CAlertMailTexts(settings, agent_).CreateUpdateStatusMail(update, Record(28, 1, std::string("7\0", 2)));
    EXPECT_EQ(update.GetMessageHeader(),
              "From: ops\r\nTo: anna,bert\r\nCc: carl\r\nSubject: $(UpdateMessage) Tower\r\n");
    EXPECT_EQ(update.Text(), "7 of %2%, %3x% Critical\r\n");

    const char* names[] = {"Low", "Normal", "High"};
    struct Case {
        std::uint8_t setting;
        unsigned char componentStatus;
        int importance;
    };
    for (const Case& c : {Case{1, 3, 0}, {2, 3, 1}, {3, 1, 2}, {0, 3, 2}, {4, 2, 1}, {0, 1, 0}, {9, 5, 1}, {0, 0, 1}}) {
        settings.importance = c.setting;
        CSmtpMessage mail;
        const CTraceCapture trace(3);
        CAlertMailTexts(settings, agent_).CreateSystemStatusMail(mail, 3, c.componentStatus, "", "");
        EXPECT_EQ(mail.Importance(), c.importance) << int{c.setting} << " " << int{c.componentStatus};
        CLumeString line;
        line.Format(" depending on %sstatus %d to %s", c.componentStatus == 1 ? "component " : "", c.componentStatus,
                    names[c.importance]);
        const bool isFixed = c.setting >= 1 && c.setting <= 3;
        EXPECT_TRUE(trace.Has("Set mail importance" + (isFixed ? std::string(": ") + names[c.importance] : line)));
    }
}
