// SPDX-License-Identifier: Apache-2.0
#include "mail/texts/AlertMailTexts.h"

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iomanip>
#include <map>
#include <sys/utsname.h>

#include <gtest/gtest.h>

#include "mail/texts/DateTime.h"
#include "platform/host/HostIpAddress.h"
#include "platform/host/OsInfo.h"
#include "support/DataRows.h"
#include "support/TraceCapture.h"

namespace {

using std::string;

/// The host as the mail texts of this program see it: its names, its addresses, its clock, and a time locale for every
/// language. Stands in for functions of the C library and the platform.
struct Host {
    string nodeName, fullName, ipv4, ipv6;
    std::time_t now = 0;
    string locale = "C";  // of LC_TIME
    string form;          // how any date or time is written, behind the locale and the format
};
Host host;

bool Take(CIPAddress& address, const string& bytes) {
    address.SetBytes({bytes.begin(), bytes.end()});
    return !bytes.empty();
}

}  // namespace

bool CHostIPAddress::GetHostIPv4Address(CIPAddress& address, int index) {
    return Take(address, host.ipv4) && index == 0;
}

bool CHostIPAddress::GetHostIPv6Address(CIPAddress& address, int index) {
    return Take(address, host.ipv6) && index == 0;
}

bool COsInfo::GetComputerNameEx(string& name, _COMPUTER_NAME_FORMAT format) {
    name = format == ComputerNamePhysicalDnsFullyQualified ? host.fullName : "";
    return true;
}

extern "C" {
int uname(utsname* names) noexcept {
    std::strcpy(names->nodename, host.nodeName.c_str());
    return host.nodeName.empty() ? -1 : 0;
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

/// An agent that gives the answers it was given, and remembers what it is asked.
class CFakeAgent final : public CIAgentValues {
public:
    std::map<string, string> answers;  // by "code-extension-object"
    string requests;

    bool RequestText(unsigned oc, unsigned oe, unsigned oi, string& text) override {
        CLumeString request;
        request.Format("%X-%X-%u", oc, oe, oi);
        requests += (requests.empty() ? "" : " ") + request;
        const auto found = answers.find(request);
        text = found != answers.end() ? found->second : text;
        return found != answers.end();
    }
    bool RequestNumber(unsigned oc, unsigned oe, unsigned oi, unsigned& number) override {
        string text = std::to_string(number);
        const bool isThere = RequestText(oc, oe, oi, text);
        number = static_cast<unsigned>(std::stoul(text));
        return isThere;
    }
    bool RequestMessageTemplate(std::uint32_t errorCode, string& text) override {
        return RequestText(errorCode, 0, 0, text);
    }
};

/// What the rows of texts.cases work on; its head tells what they are.
struct Desk {
    MailSettings settings;
    CFakeAgent agent;
    CLogMsgArguments record;
    unsigned char system = 0;
    unsigned char component = 0;
    string name, designation;
    CLumeString text;  // of the row
    CTraceCapture trace{3};

    CAlertMailTexts Texts() { return {settings, agent}; }
    void SetAnswer() { agent.answers[text.substr(0, text.find(' '))] = text.substr(text.find(' ') + 1); }
    void CreateMail(bool isStatus) {
        CSmtpMessage mail;
        isStatus ? Texts().CreateSystemStatusMail(mail, system, component, name, designation)
                 : Texts().CreateUpdateStatusMail(mail, record);
        text = mail.GetMessageHeader() + mail.Text();
    }
    void TakeTrace() {
        text = trace.All() + "\n";
        trace.Clear();
    }
};

#define DO(name, what)              \
    {                               \
        name, [](Desk& d) { what; } \
    }
#define TEXT(name, value) DO(name, (value) = d.text)
#define NUMBER(name, value) DO(name, (value) = static_cast<decltype(value)>(std::stol(d.text)))

const std::map<string, void (*)(Desk&)> kRows = {
    DO("zone", ::setenv("TZ", d.text.c_str(), 1)),
    NUMBER("now", host.now),
    TEXT("form", host.form),
    TEXT("node", host.nodeName),
    TEXT("full name", host.fullName),
    TEXT("IPv4", host.ipv4),
    TEXT("IPv6", host.ipv6),
    DO("answer", d.SetAnswer()),
    DO("no answers", d.agent.answers.clear()),
    NUMBER("language", d.settings.language),
    TEXT("sender", d.settings.senderAddress),
    TEXT("sender name", d.settings.senderName),
    TEXT("recipients", d.settings.recipients),
    TEXT("recipients Cc", d.settings.recipientsCc),
    NUMBER("importance", d.settings.importance),
    TEXT("alert subject", d.settings.alertSubject),
    TEXT("alert message", d.settings.alertMessage),
    TEXT("update subject", d.settings.updateSubject),
    TEXT("update message", d.settings.updateMessage),
    NUMBER("system", d.system),
    NUMBER("component", d.component),
    TEXT("name", d.name),
    TEXT("designation", d.designation),
    DO("record", d.record = CLogMsgArguments({d.text.begin(), d.text.end()})),
    DO("no record", d.record = CLogMsgArguments(); d.text.assign(d.record.Bytes().begin(), d.record.Bytes().end())),
    DO("text", d.Texts().FormatText(d.text)),
    DO("status text", d.Texts().FormatSystemStatusText(d.text, d.system, d.component, d.name, d.designation)),
    DO("update text", d.Texts().FormatUpdateStatusText(d.text, d.record)),
    DO("status mail", d.CreateMail(true)),
    DO("update mail", d.CreateMail(false)),
    DO("forget trace", d.trace.Clear()),
    DO("trace", d.TakeTrace())};

}  // namespace

TEST(AlertMailTexts, ComeOutAsListed) {
    Desk desk;
    for (auto row : DataRows(EM_TEST_DATA "/texts.cases")) {
        row.resize(4);
        desk.text = row[1];
        desk.agent.requests.clear();
        kRows.at(row[0])(desk);
        EXPECT_EQ(string(desk.text), row[2].empty() ? row[1] : row[2] == "-" ? "" : row[2]) << row[0] << " " << row[1];
        EXPECT_EQ(desk.agent.requests, row[3]) << row[0] << " " << row[1];
        EXPECT_EQ(host.locale, "C") << row[0] << " " << row[1];
    }
}

TEST(LogMsgArguments, HasNothingWithoutAWholeHeader) {
    const CLogMsgArguments cut(std::vector<unsigned char>(CLogMsgArguments::kHeaderSize - 1, 1));
    EXPECT_TRUE(!cut.IsComplete() && cut.ErrorCode() == 0 && cut.Arguments().empty());
}
