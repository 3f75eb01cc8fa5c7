// SPDX-License-Identifier: Apache-2.0
#include <map>
#include <optional>

#include "notification/Notification.h"

namespace {

using std::string;

/// Spells a number or an enumerator as text.
template <class T>
struct Number {
    string& text;
    T value = static_cast<T>(std::stoi(text));

    ~Number() { text = std::to_string(static_cast<int>(value)); }
    operator T&() { return value; }
};

string WithoutLayout(string text) {
    std::erase_if(text, [](char c) { return c == '\n' || c == ' '; });
    return text.substr(text.find("?>") == string::npos ? 0 : text.find("?>") + 2);
}

/// What the rows of a file of cases work on; the head of settings.cases tells what the fields of a row are.
struct Desk {
    CTempDirectory directory{};
    CNotificationConfig config{directory / ""};
    std::optional<CTraceCapture> trace{3};
    CFileLock lock;
    string document;    // as it was given last
    string text, with;  // of the row

    bool SetDocument() {
        const bool isDocument = config.SetDoc(text);
        document = WithoutLayout(config.GetDocFormatted());
        return isDocument && config.FindElem() && config.IntoElem() && config.FindElem("here");
    }
    bool HasReplaced() {
        const string what = WithoutLayout(text);
        document.replace(document.find(what), what.size(), WithoutLayout(with));
        return WithoutLayout(config.GetDocFormatted()) == document;
    }
    bool Import() {
        const string path = directory / "ravlo.ini";
        WriteFile(path, "[Logging]\n" + text);
        return config.ImportTamracSettings(text.empty() ? "" : text == "-" ? nullptr : path.c_str());
    }
    bool GetTrace() {
        const std::regex names(directory / "|#" + std::to_string(::getpid()));
        text = std::regex_replace(trace->All(), names, "<>");
        trace->Clear();
        return true;
    }
};

#define DO(name, ...)                             \
    {                                             \
        name, [](Desk& d) { return __VA_ARGS__; } \
    }
#define CALL(name, ...) DO(#name, d.config.name(__VA_ARGS__))
#define SERVER(name, ...) CALL(name, __VA_ARGS__, d.with.empty() ? 0 : std::stoi(d.with))

const std::map<string, bool (*)(Desk&)> kRows = {
    CALL(GetSender, d.text),
    CALL(SetSender, d.text),
    CALL(GetSenderDescription, d.text),
    CALL(SetSenderDescription, d.text),
    CALL(GetRecipients, d.text, d.with == "-" ? nullptr : d.with.c_str()),
    CALL(SetRecipients, d.text, d.with.c_str()),
    CALL(GetRecipientsCc, d.text, d.with == "-" ? nullptr : d.with.c_str()),
    CALL(SetRecipientsCc, d.text, d.with.c_str()),
    SERVER(GetSmtpServer, d.text),
    SERVER(SetSmtpServer, d.text),
    SERVER(GetSmtpServerPort, Number<unsigned short>{d.text}),
    SERVER(SetSmtpServerPort, Number<unsigned short>{d.text}),
    SERVER(GetSmtpServerSMTPS, Number<bool>{d.text}),
    SERVER(SetSmtpServerSMTPS, Number<bool>{d.text}),
    SERVER(GetSmtpServerAuthenticationType, Number<CNotificationConfig::AuthenticationType>{d.text}),
    SERVER(SetSmtpServerAuthenticationType, Number<CNotificationConfig::AuthenticationType>{d.text}),
    SERVER(GetSmtpServerAuthenticationUserName, d.text),
    SERVER(SetSmtpServerAuthenticationUserName, d.text),
    SERVER(GetSmtpServerAuthenticationUserPassword, d.text),
    SERVER(SetSmtpServerAuthenticationUserPassword, d.text),
    DO("set plain password",
       d.config.SetSmtpServerAuthenticationUserPassword(d.text, 0, CNotificationConfig::PasswordEncryptionType::Plain)),
    DO("document", d.SetDocument()),
    DO("replaced", d.HasReplaced()),
    DO("GetDocument", d.text = d.config.GetDocFormatted(), true),
    DO("import", d.Import()),
    DO("trace", d.trace.reset(), d.trace.emplace(std::stoi(d.text)), true),
    DO("GetTrace", d.GetTrace()),
    CALL(Load),
    CALL(LoadExclusive),
    CALL(Save),
    DO("save in", CNotificationConfig(d.text).Save()),
    DO("lock", d.lock.Lock(d.config.Path().c_str(), nullptr, 0)),
    DO("write", WriteFile(d.config.Path(), d.text), true),
    DO("GetFile", d.text = ReadFile(d.config.Path()), true),
    DO("resize", std::filesystem::resize_file(d.config.Path(), std::stoul(d.text)), true),
    DO("GetSize", d.text = std::to_string(std::filesystem::file_size(d.config.Path())), true),
    DO("remove", std::filesystem::remove(d.config.Path())),
    DO("make directory", std::filesystem::create_directory(d.config.Path()))};

void DoAsListed(const string& file) {
    std::optional<Desk> desk;
    for (auto row : DataRows(EM_TEST_DATA "/" + file)) {
        if (row.size() == 1 && row[0].starts_with('=')) {
            desk.reset();
            desk.emplace();
            continue;
        }
        row.resize(5);
        desk->text = row[1];
        desk->with = row[2];
        const string place = desk->config.GetAttrib("at");
        EXPECT_EQ(kRows.at(row[0])(*desk), row[3] != "no") << row[0] << " " << row[1];
        EXPECT_TRUE(!row[0].starts_with("Get") || desk->text == row[4]) << row[0] << " " << desk->text;
        EXPECT_TRUE(row[0] == "document" || desk->config.GetAttrib("at") == place) << row[0];
    }
}

}  // namespace

TEST(NotificationConfig, DoesAsListed) {
    EXPECT_EQ(CNotificationConfig().Path(), "/etc/kestrel/HostwardenSuite/ManagedNode/Notifications/Notifications.xml");
    DoAsListed("settings.cases");
    DoAsListed("imports.cases");
}

TEST(NotificationConfig, TheHostNameStandsInForAMissingSender) {
    InPrivateNamespace([&] {
        ASSERT_EQ(::mount("none", "/opt", "tmpfs", 0, nullptr), 0);
        ResolveFrom("10.0.0.5 box.example.net box\n");
        DoAsListed("imports-without-name.cases");
        Shell("ip link set lo up && ip addr add 10.0.0.5/24 dev lo");
        DoAsListed("imports-with-name.cases");
    });
}
