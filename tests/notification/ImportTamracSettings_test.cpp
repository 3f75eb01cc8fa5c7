#include "notification/Notification.h"

namespace {

const std::string kTag = "\nCNotificationConfig : ";
const std::string kOld = ReadFile(EM_TEST_DATA "/import-old.xml");

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

/// Imports into the old document, and expects it with one place replaced.
void ExpectImported(const std::string& ini, const std::string& what, const std::string& by) {
    std::string expected = kOld;
    expected.replace(expected.find(what), what.size(), by);
    EXPECT_EQ(Import(ini, kOld), WithoutLayout(expected)) << ini;
}

}  // namespace

TEST(ImportTamracSettings, AllSettingsIntoAnEmptyDocument) {
    const CTraceCapture trace(3);
    EXPECT_EQ(Import(ReadFile(EM_TEST_DATA "/import-all.ini"), ""), ReadFile(EM_TEST_DATA "/import-all.xml"));
    const std::string prints = trace.All();
    EXPECT_EQ(prints.substr(prints.find(kTag + "  ")), ReadFile(EM_TEST_DATA "/import-traces.txt"));
}

TEST(ImportTamracSettings, ChangesOnlyWhatTheFileHolds) {
    // the INI file, what it replaces in the document, and by what
    for (const auto& row : DataRows(EM_TEST_DATA "/imports.txt")) {
        const CTraceCapture trace(2);  // all prints are of level 3
        ExpectImported(row[0], row[1], row[2]);
        EXPECT_EQ(trace.All(), "");
    }
}

TEST(ImportTamracSettings, TheHostNameStandsInForAMissingSender) {
    const std::string old = "\"x\"><Format><Sender><Address>old</Address>";
    const std::string enabled = "\"Enabled\"><Format><Sender><Address";
    InPrivateNamespace([&] {
        ResolveFrom("10.0.0.5 box.example.net box\n");
        ExpectImported("MailLogging=ENABLED\n", old, enabled + "/><Description/>");
        const std::string name = "box.example.net";
        Shell("ip link set lo up && ip addr add 10.0.0.5/24 dev lo");
        const CTraceCapture trace(3);
        ExpectImported("MailLogging=ENABLED\n", old,
                       enabled + ">" + name + "</Address><Description>" + name + "</Description>");
        EXPECT_TRUE(trace.Has(kTag + "  import TAMRAC: email sender is host name \"box.example.net\""));
        EXPECT_TRUE(trace.Has("sender description set to host name \"box.example.net\""));
        const CTraceCapture none(3);
        ExpectImported("MailLogging=\n", "", "");
        EXPECT_TRUE(none.Has(kTag + "  import TAMRAC: email disabled"));
    });
}

TEST(ImportTamracSettings, AMissingFileIsTracedOnly) {
    InPrivateNamespace([] {
        ASSERT_EQ(::mount("none", "/opt", "tmpfs", 0, nullptr), 0);
        const CTraceCapture trace;
        EXPECT_FALSE(CNotificationConfig().ImportTamracSettings(nullptr));
        EXPECT_EQ(trace.All(), ReadFile(EM_TEST_DATA "/import-traces-of-a-missing-file.txt"));
    });
}
