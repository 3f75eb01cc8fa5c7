#include "mail/AlertMailTexts.h"

#include <map>
#include <sys/utsname.h>
#include <tuple>

#include <gtest/gtest.h>

#include "mail/DateTime.h"
#include "platform/HostIpAddress.h"
#include "support/TraceCapture.h"

namespace {

/// An agent that knows a few texts and counts what it is asked.
class CFakeAgent final : public CIAgentValues {
public:
    std::map<std::tuple<unsigned, unsigned, unsigned>, std::string> texts = {
        {{0x0C00, 0x1508, 0}, "Tower"},    {{0x0C00, 0x0600, 0}, "SN1"},   {{0xE001, 0x0210, 0}, "rack"},
        {{0xE001, 0x0421, 0}, "gut"},      {{0xE001, 0x0424, 9}, "today"}, {{0xE001, 0x0425, 0}, "noon"},
        {{0xE001, 0x0422, 9}, "Vorsicht"},
    };
    std::string messageTemplate = "%1 of %2%%, %3x%";
    int requests = 0;

    bool RequestText(unsigned oc, unsigned oe, unsigned oi, std::string& text) override {
        ++requests;
        const auto found = texts.find({oc, oe, oi});
        if (found != texts.end()) {
            text = found->second;
        }
        return found != texts.end();
    }
    bool RequestNumber(unsigned oc, unsigned oe, unsigned /*oi*/, unsigned& number) override {
        ++requests;
        number = oc == 0x230F && oe == 0 ? 3 : 99;
        return !texts.empty();
    }
    bool RequestMessageTemplate(std::uint32_t errorCode, std::string& text) override {
        ++requests;
        text = messageTemplate;
        return errorCode == 0x290012;
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

std::string NodeName() {
    utsname names{};
    ::uname(&names);
    return names.nodename;
}

class AlertMailTexts : public ::testing::Test {
protected:
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

TEST_F(AlertMailTexts, VariablesInAnyCaseAreReplacedByTheAgentsValues) {
    EXPECT_EQ(Format("$(DATE)|$(date)|$(Time)|$(SystemModel)|$(SYSTEMserialnr)|$_idn|$(SystemAssetID)|$(SystemStatus)"),
              "today|today|noon|Tower|SN1|SN1|rack|Critical");
    EXPECT_EQ(Format("$(HostName) $_SRV"), NodeName() + " " + NodeName());
    EXPECT_EQ(Format("$(ComponentName) $(UpdateMessage) $(Unknown) $(Date"),
              "$(ComponentName) $(UpdateMessage) $(Unknown) $(Date");
    EXPECT_EQ(Format("$(HostIPAddress)"),
              Format("$(HostIPv4Address)").empty() ? Format("$(HostIPv6Address)") : Format("$(HostIPv4Address)"));
}

TEST_F(AlertMailTexts, ATextWithoutVariablesAsksNothing) {
    EXPECT_EQ(Format("plain $ ( text"), "plain $ ( text");
    EXPECT_EQ(agent_.requests, 0);
}

TEST_F(AlertMailTexts, AMissingValueLeavesTheTextEmpty) {
    agent_.texts.clear();
    EXPECT_EQ(Format("<$(SystemModel)$_IDN$(SystemSerialNr)$(SystemAssetID)$(SystemStatus)>"), "<>");
}

TEST_F(AlertMailTexts, LocalFormsStandInForTheAgentsDateAndTime) {
    agent_.texts.clear();
    MailSettings settings = Settings();
    settings.language = 1041;
    std::string date;
    CDateTime::JapanDate(date, CDateTime::LocalNow());
    EXPECT_EQ(Format("$(Date)", settings), date);
    CDateTime::JapanDate(date, 86400L * 40);
    EXPECT_EQ(date, "1970年02月10日");
    std::string time;
    CDateTime::JapanTime(time, 23 * 3600 + 5 * 60 + 9);
    EXPECT_EQ(time, "23:05:09");

    const CTraceCapture trace;
    EXPECT_EQ(Format("$(Date)").size(), sizeof "11/24/26" - 1);  // the C locale's form
    EXPECT_TRUE(trace.Has("\nEM_ALERT            : Set date/time locale for Vortal locale ID 0x9 (9):"));
    EXPECT_EQ(std::string(::setlocale(LC_TIME, nullptr)), "C");
    EXPECT_EQ(CDateTime::LocalTimeOffset(), 19800);  // the tests' time zone, UTC+05:30
}

TEST_F(AlertMailTexts, StatusWordsAreTranslatedFirstInTheMailsLanguage) {
    EXPECT_EQ(FormatStatus("$(SystemStatus) $(ComponentStatus)", 2, 1, ""), "Vorsicht gut");
    EXPECT_EQ(FormatStatus("$(SystemStatus) $(ComponentStatus)", 4, 4, ""), "N/A Not Present");
    EXPECT_EQ(FormatStatus("$(SystemStatus) $(ComponentStatus)", 0, 5, ""), "N/A Not Manageable");
    EXPECT_EQ(FormatStatus("$(SystemStatus) $(ComponentStatus)", 3, 200, ""), "Critical N/A");
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
    EXPECT_EQ(FormatUpdate("$(UpdateMessage) $(SystemModel)", CLogMsgArguments()), "$(UpdateMessage) Tower");
    const CLogMsgArguments shortRecord(std::vector<unsigned char>(25, 1));
    EXPECT_EQ(FormatUpdate("$(UpdateMessage)", shortRecord), "$(UpdateMessage)");
}

TEST_F(AlertMailTexts, MailsCarrySenderRecipientsAndImportance) {
    MailSettings settings = Settings();
    settings.senderName = "Alerts";
    settings.recipientsCc = "carl";
    settings.alertSubject = "$(ComponentStatus)";
    settings.alertMessage = "a\nb\r\n$(ComponentName)";
    settings.updateSubject = "$(UpdateMessage)";
    settings.updateMessage = "$(UpdateMessage)\n";
    CSmtpMessage status;
    CAlertMailTexts(settings, agent_).CreateSystemStatusMail(status, 3, 1, "FAN", "rear");
    EXPECT_EQ(status.GetMessageHeader(),
              "From: Alerts<ops>\r\nTo: anna,bert\r\nCc: carl\r\nSubject: gut\r\n"
              "X-Priority: 5\r\nImportance: Low\r\n");
    EXPECT_EQ(status.Text(), "a\r\nb\r\nFAN");
    CSmtpMessage update;
    CAlertMailTexts(settings, agent_).CreateUpdateStatusMail(update, Record(28, 1, std::string("7\0", 2)));
    EXPECT_EQ(update.GetMessageHeader(),
              "From: Alerts<ops>\r\nTo: anna,bert\r\nCc: carl\r\nSubject: $(UpdateMessage)\r\n");
    EXPECT_EQ(update.Text(), "7 of %2%, %3x%\r\n");

    struct Case {
        std::uint8_t setting;
        unsigned char componentStatus;
        int importance;
    };
    for (const Case& c : {Case{1, 3, 0}, {2, 3, 1}, {3, 1, 2}, {0, 3, 2}, {4, 2, 1}, {0, 1, 0}, {9, 5, 1}}) {
        settings.importance = c.setting;
        CSmtpMessage mail;
        CAlertMailTexts(settings, agent_).CreateSystemStatusMail(mail, 3, c.componentStatus, "", "");
        EXPECT_EQ(mail.Importance(), c.importance) << int{c.setting} << " " << int{c.componentStatus};
    }
}
