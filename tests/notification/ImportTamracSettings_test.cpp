#include <gtest/gtest.h>

#include "notification/NotificationConfig.h"
#include "support/PrivateNamespace.h"
#include "support/TraceCapture.h"

namespace {

const std::string kTag = "\nCNotificationConfig : ";
const std::string kOld =
    R"(<Notifications><email Enabled="x"><Format><Sender><Address>old</Address></Sender><Recipients>
<Recipient><Address>1</Address></Recipient><Recipient><Address>2</Address></Recipient>
<Recipient><Name>3</Name><Address>3</Address></Recipient></Recipients></Format><SMTP><Server><Host>old</Host>
<Authentication Type="none"><Password Encryption="1">p</Password></Authentication></Server></SMTP></email>
</Notifications>)";

std::string WithoutLayout(std::string text) {
    std::erase_if(text, [](char c) { return c == '\n' || c == ' '; });
    return text;
}

/// Imports the text of an INI section into a document.
/// @return the document without layout and declaration
std::string Import(const std::string& ini, const std::string& document) {
    const std::string path = ::testing::TempDir() + "ravlo" + std::to_string(::getpid()) + ".ini";
    WriteAll(path, "[Logging]\n" + ini);
    CNotificationConfig config;
    EXPECT_TRUE(config.SetDoc(document));
    config.FindElem() && config.IntoElem() && config.FindElem("email");
    const std::string before = config.GetAttrib("Enabled");
    EXPECT_TRUE(config.ImportTamracSettings(path.c_str()));
    EXPECT_EQ(config.GetAttrib("Enabled").empty(), before.empty());  // the position stayed
    ::unlink(path.c_str());
    const std::string text = WithoutLayout(config.GetDocFormatted());
    return text.substr(text.find("?>") + 2);
}

std::string Replaced(std::string text, const std::string& what, const std::string& by) {
    return text.replace(text.find(what), what.size(), by);
}

}  // namespace

TEST(ImportTamracSettings, AllSettingsIntoAnEmptyDocument) {
    const CTraceCapture trace(3);
    EXPECT_EQ(
        Import("MailLogging=Enabled\nMailLogSMTPServer=h\nMailLogSMTPServerAuthLoginUsername=u<\n"
               "MailLogSMTPServerAuthLoginPasswordC=f8s6mivZg++FTemrYkCdMg==\nMailLogSender=s@h\n"
               "MailLogSenderDescription=d\nMailLogRecipient=a@h b@h;c@h,d@h\n",
               ""),
        "<Notifications><email><SMTP><Server><Host>h</Host><AuthenticationType=\"smtp\"><UserName>u&lt;</UserName>"
        "<PasswordEncryption=\"2\">f8s6mivZg++FTemrYkCdMg==</Password></Authentication></Server></SMTP>"
        "<Format><Sender><Address>s@h</Address><Description>d</Description></Sender><Recipients>"
        "<Recipient><Address>a@h</Address></Recipient><Recipient><Address>b@h</Address></Recipient>"
        "<Recipient><Address>c@h</Address></Recipient><Recipient><Address>d@h</Address></Recipient></Recipients></"
        "Format>"
        "</email></Notifications>");
    const std::string prints = trace.All();
    EXPECT_EQ(prints.substr(prints.find(kTag + "  ")), R"(
CNotificationConfig :   import TAMRAC: email "Enabled"
CNotificationConfig :   import TAMRAC: SMTP host name "h"
CNotificationConfig :   import TAMRAC SMTP auth user name "u<"
CNotificationConfig :   import TAMRAC SMTP auht user password "f8s6mivZg++FTemrYkCdMg=="
CNotificationConfig :   import TAMRAC: email sender "s@h"
CNotificationConfig :   import TAMRAC: email sender description "d"
CNotificationConfig :   import TAMRAC: email receipient "a@h b@h;c@h,d@h"
CNotificationConfig : Import of Hostwarden RAID SMTP settings done!)");
}

TEST(ImportTamracSettings, ChangesOnlyWhatTheFileHolds) {
    const struct {
        const char* ini;
        std::string what;
        std::string by;
    } cases[] = {
        {"other=1\n", "", ""},
        {"MailLogging=yes\n", "\"x\"", "\"Disabled\""},
        {"MailLogging=\nMailLogSMTPServerAuthLoginUsername=u\nMailLogSMTPServerAuthLoginPasswordC=p=\n", "", ""},
        {"MailLogSMTPServer=h\nMailLogSMTPServerAuthLoginPasswordC=q\n", "<Host>old", "<Host>h"},
        {"MailLogSMTPServer=old\nMailLogSMTPServerAuthLoginUsername=u\nMailLogSMTPServerAuthLoginPasswordC=q\n",
         R"("none"><Password Encryption="1">p</Password>)",
         R"("smtp"><Password Encryption="2">q</Password><UserName>u</UserName>)"},
        {"MailLogRecipient=;9\n", "", ""},
        {"MailLogRecipient= ;; none yet\n", "", ""},
        {"MailLogRecipient=, ,;8 ,9\n",
         "><Address>1</Address></Recipient><Recipient><Address>2</Address></Recipient>\n"
         "<Recipient><Name>3</Name><Address>3</Address>",
         "/><Recipient/>\n<Recipient><Name>3</Name>"},
        {"MailLogRecipient=,9; ;c;d\n",
         "1</Address></Recipient><Recipient><Address>2</Address></Recipient>\n<Recipient><Name>3</Name><Address>3</"
         "Address>",
         "9</Address></Recipient><Recipient/>\n<Recipient><Name>3</Name>"},
    };
    for (const auto& [ini, what, by] : cases) {
        const CTraceCapture trace(2);  // all prints are of level 3
        EXPECT_EQ(Import(ini, kOld), WithoutLayout(Replaced(kOld, what, by))) << ini;
        EXPECT_EQ(trace.All(), "");
    }
}

TEST(ImportTamracSettings, TheHostNameStandsInForAMissingSender) {
    const std::string enabled = Replaced(kOld, "\"x\"", "\"Enabled\"");
    InPrivateNamespace([&] {
        ResolveFrom("10.0.0.5 box.example.net box\n");
        EXPECT_EQ(Import("MailLogging=ENABLED\n", kOld),
                  WithoutLayout(Replaced(enabled, "<Address>old</Address>", "<Address/><Description/>")));
        Shell("ip link set lo up && ip addr add 10.0.0.5/24 dev lo");
        const CTraceCapture trace(3);
        EXPECT_EQ(Import("MailLogging=ENABLED\n", kOld),
                  WithoutLayout(Replaced(enabled, "old</Address>",
                                         "box.example.net</Address><Description>box.example.net"
                                         "</Description>")));
        const std::string prints =
            Replaced(trace.All(), "COsInfo::GetComputerNameEx: host = 10.0.0.5, ComputerName = box.example.net\n", "");
        EXPECT_EQ(prints.substr(prints.find(kTag + "  ")),
                  kTag + "  import TAMRAC: email \"Enabled\"" + kTag +
                      "  import TAMRAC: email sender is host name \"box.example.net\"" + kTag +
                      "  import TAMRAC: email sender description set to host name \"box.example.net\"" + kTag +
                      "Import of Hostwarden RAID SMTP settings done!");
        const CTraceCapture none(3);
        EXPECT_EQ(Import("MailLogging=\n", kOld), WithoutLayout(kOld));
        EXPECT_TRUE(none.Has(kTag + "  import TAMRAC: email disabled"));
    });
}

TEST(ImportTamracSettings, AMissingFileIsTracedOnly) {
    InPrivateNamespace([] {
        ASSERT_EQ(::mount("none", "/opt", "tmpfs", 0, nullptr), 0);
        const CTraceCapture trace;
        EXPECT_FALSE(CNotificationConfig().ImportTamracSettings(nullptr));
        EXPECT_EQ(trace.All(), R"(
CNotificationConfig : Import for Hostwarden RAID SMTP settings...
CNotificationConfig : ravlo.ini found in "/opt/kestrel/HostwardenSuite/ArrayKeeper/bin/ravlo.ini"
CNotificationConfig : Import of Hostwarden RAID SMTP settings done!)");
    });
}
