#include "mail/AlertMailTexts.h"

#include <array>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iomanip>
#include <map>
#include <sys/utsname.h>
#include <tuple>

#include <gtest/gtest.h>

#include "mail/DateTime.h"
#include "platform/HostIpAddress.h"
#include "platform/OsInfo.h"
#include "support/TraceCapture.h"

namespace {

/// The host as the mail texts of this program see it: its names, its addresses, its clock, and a time locale for every
/// language. Stands in for functions of the C library and the platform.
struct Host {
    const char* nodeName = " alpha ";  ///< null: the system does not tell it
    std::string fullName = "alpha.example.net";
    std::vector<unsigned char> ipv4 = {10, 20, 30, 40};
    std::vector<unsigned char> ipv6 = {0xFD, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 5};
    std::time_t now = 0;
    std::string locale = "C";    ///< of LC_TIME
    std::string form = "%F %T";  ///< how any date or time is written, behind the locale and the format
};
Host host;

}  // namespace

bool CHostIPAddress::GetHostIPv4Address(CIPAddress& address, int index) {
    address.SetBytes(host.ipv4);
    return index == 0 && !host.ipv4.empty();
}

bool CHostIPAddress::GetHostIPv6Address(CIPAddress& address, int index) {
    address.SetBytes(host.ipv6);
    return index == 0 && !host.ipv6.empty();
}

bool COsInfo::GetComputerNameEx(std::string& name, _COMPUTER_NAME_FORMAT format) {
    name = format == ComputerNamePhysicalDnsFullyQualified ? host.fullName : "";
    return true;
}

extern "C" {
int uname(utsname* names) noexcept {
    if (host.nodeName != nullptr) {
        std::strcpy(names->nodename, host.nodeName);
    }
    return host.nodeName != nullptr ? 0 : -1;
}

std::time_t time(std::time_t* now) noexcept {
    return now != nullptr ? *now = host.now : host.now;
}

char* setlocale(int category, const char* name) noexcept {
    if (category == LC_TIME && name != nullptr) {
        host.locale = name;
    }
    return host.locale.data();
}

std::size_t strftime(char* out, std::size_t size, const char* format, const std::tm* calendar) noexcept {
    std::ostringstream text;
    const std::string form = std::strchr(format, '#') == nullptr ? format : host.locale + format + " " + host.form;
    text << std::put_time(calendar, form.c_str());
    if (text.str().size() >= size) {
        return 0;
    }
    std::strcpy(out, text.str().c_str());
    return text.str().size();
}
}

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
    CLumeString requests;  // "code-extension-object " each

    bool RequestText(unsigned oc, unsigned oe, unsigned oi, std::string& text) override {
        requests.AppendFormat("%X-%X-%u ", oc, oe, oi);
        const auto found = texts.find({oc, oe, oi});
        if (found != texts.end()) {
            text = found->second;
        }
        return found != texts.end();
    }
    bool RequestNumber(unsigned oc, unsigned oe, unsigned oi, unsigned& number) override {
        requests.AppendFormat("%X-%X-%u ", oc, oe, oi);
        number = status;
        return !texts.empty();
    }
    bool RequestMessageTemplate(std::uint32_t errorCode, std::string& text) override {
        requests.AppendFormat("%X-%X-%u ", errorCode, 0, 0);
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

/// A file of expectations.
std::string Expected(const std::string& name) {
    std::ifstream file(EM_MAIL_DATA "/" + name);
    return {std::istreambuf_iterator<char>(file), {}};
}

class AlertMailTexts : public ::testing::Test {
protected:
    AlertMailTexts() {
        host = Host();
        for (const unsigned language : {1031, 1033, 1036, 1041, 3084}) {
            agent_.texts[{0xE001, 0x0425, language}] = "";  // no more than no answer
        }
    }
    std::string Format(const std::string& text, MailSettings settings = Settings()) {
        CLumeString result(text);
        CAlertMailTexts(settings, agent_).FormatText(result);
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

TEST_F(AlertMailTexts, ComeOutAsListed) {
    std::ifstream list(EM_MAIL_DATA "/texts");
    std::string traces;
    for (std::string line; std::getline(list, line);) {
        std::istringstream fields(line);
        std::string zone;
        std::string rest;
        MailSettings settings = Settings();
        int status = 0;
        if (line.starts_with('#') || !(fields >> zone >> host.now >> settings.language >> status)) {
            continue;
        }
        std::getline(fields, rest);
        std::vector<std::string> parts;
        CLumeString(rest).Split(parts, "~");
        for (std::string& part : parts) {
            CLumeString::TrimLeft(part, " ");
            CLumeString::TrimRight(part, " ");
        }
        ASSERT_EQ(parts.size(), 3U) << line;
        ::setenv("TZ", zone.c_str(), 1);
        agent_.requests.clear();
        const CTraceCapture trace(3);
        CLumeString text(parts[0]);
        CAlertMailTexts texts(settings, agent_);
        if (status < 0) {
            texts.FormatText(text);
        } else {
            texts.FormatSystemStatusText(text, static_cast<unsigned char>(status), static_cast<unsigned char>(status),
                                         "FAN $(componentname) $(COMPONENTNAME) $(ComponentDesignation)",
                                         "rear $(SystemModel)");
        }
        EXPECT_EQ(text, parts[1]) << line;
        EXPECT_EQ(agent_.requests, parts[2].empty() ? "" : parts[2] + " ") << line;
        EXPECT_EQ(host.locale, "C") << line;
        traces = trace.All();
    }
    ::setenv("TZ", "Asia/Kolkata", 1);
    EXPECT_EQ(traces + "\n", Expected("all-variables.traces"));
}

TEST_F(AlertMailTexts, WhatIsNotThereStaysOrLeavesTheTextEmpty) {
    const std::string values = "$(HostName)$_SRV|$(HostIPAddress)|$(HostIPv4Address)|$(HostIPv6Address)|$_IPA";
    host.ipv4.clear();
    EXPECT_EQ(Format(values), "alphaalpha|fd00::5||fd00::5|fd00::5");
    host.ipv6.clear();
    host.nodeName = nullptr;
    EXPECT_EQ(Format(values), "$(HostName)$_SRV||||");
    const CTraceCapture trace(3);
    EXPECT_EQ(Format("$(SystemStatus)"), "Critical");  // without a translation
    agent_.status = 257;
    EXPECT_EQ(Format("$(SystemStatus)"), "N/A");
    agent_.texts.clear();
    EXPECT_EQ(Format("<$(SystemModel)$_IDN$(SystemSerialNr)$(SystemAssetID)$(SystemStatus)>"), "<>");
    for (const std::size_t length : {88, 89}) {  // "English%#x " goes before; a form has room for 99 bytes
        host.form = std::string(length, 'x');
        EXPECT_EQ(Format("$(Date)"), length == 88 ? "English%#x " + host.form : "");
        EXPECT_EQ(host.locale, "C");
    }
    EXPECT_EQ(trace.All() + "\n", Expected("missing.traces"));
}

TEST_F(AlertMailTexts, UpdateMessagesComeFromTheirTemplate) {
    const CLogMsgArguments diskRecord = Record(31, 1, std::string("disk\0", 5));
    const std::tuple<CLogMsgArguments, const char*, const char*> cases[] = {
        {diskRecord, "%1 of %2%%", "disk of %2%"},
        {Record(255, 255, std::string("a\0b", 3)), "%1%2%3%0%", "ab%3%0%"},  // lies about length and count
        {Record(28, 9, std::string("a\0b\0", 4)), "%1%2 %x%%1", "a%2 %x%1"},
        {Record(26, 3, std::string("a\0b\0", 4)), "%1%99999999999", "%1%2147483647"},
        {Record(30, 2, std::string("\0\0", 2)), "<%1%2>", "<>"},
    };
    for (const auto& [record, messageTemplate, message] : cases) {
        agent_.messageTemplate = messageTemplate;
        EXPECT_EQ(FormatUpdate("$(UpdateMessage)", record), message) << messageTemplate;
    }
    EXPECT_EQ(agent_.requests, "290012-0-0 290012-0-0 290012-0-0 290012-0-0 290012-0-0 ");
    const CTraceCapture trace(3);
    EXPECT_EQ(FormatUpdate("$(updatemessage) $(SystemModel)", diskRecord), "<disk%2> Tower");
    EXPECT_EQ(FormatUpdate("$(UpdateMessage) $(SystemModel)", CLogMsgArguments()), "$(UpdateMessage) Tower");
    const CLogMsgArguments shortRecord(std::vector<unsigned char>(25, 1));
    EXPECT_EQ(FormatUpdate("$(UpdateMessage)", shortRecord), "$(UpdateMessage)");
    EXPECT_EQ(FormatUpdate("text", diskRecord), "text");
    EXPECT_EQ(trace.All() + "\n", Expected("update.traces"));
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
    CSmtpMessage update;
    const CTraceCapture trace(3);
    CAlertMailTexts(settings, agent_).CreateSystemStatusMail(status, 2, 1, "FAN", "rear");
    settings.senderName = "";
    CAlertMailTexts(settings, agent_).CreateUpdateStatusMail(update, Record(28, 1, std::string("7\0", 2)));
    EXPECT_EQ(status.GetMessageHeader() + status.Text() + "\n" + update.GetMessageHeader() + update.Text(),
              Expected("mails"));
    settings = MailSettings();
    for (const auto& [setting, componentStatus, importance] :
         {std::array{1, 3, 0}, {2, 3, 1}, {3, 1, 2}, {0, 3, 2}, {4, 2, 1}, {0, 1, 0}, {9, 5, 1}, {0, 0, 1}}) {
        settings.importance = static_cast<std::uint8_t>(setting);
        CAlertMailTexts(settings, agent_)
            .CreateSystemStatusMail(status, 3, static_cast<unsigned char>(componentStatus), "", "");
        EXPECT_EQ(status.Importance(), importance) << setting << " " << componentStatus;
    }
    EXPECT_EQ(trace.All() + "\n", Expected("mails.traces"));
}
