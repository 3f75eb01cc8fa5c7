#include <algorithm>

#include "fuzz/Fuzz.h"
#include "notification/NotificationConfig.h"
#include "xml/XmlText.h"

namespace {

using Config = CNotificationConfig;
using Type = Config::AuthenticationType;

/// The values of the sender and of one server.
struct Values {
    std::string sender, description, recipients, recipientsCc, host, userName, password;
    unsigned short port = 0;
    bool smtps = false;
    Type type = Type::None;

    bool operator==(const Values&) const = default;
};

Values Get(Config& config, int server) {
    Values values;
    config.GetSender(values.sender);
    config.GetSenderDescription(values.description);
    config.GetRecipients(values.recipients, ";");
    config.GetRecipientsCc(values.recipientsCc, ";");
    config.GetSmtpServer(values.host, server);
    config.GetSmtpServerPort(values.port, server);
    config.GetSmtpServerSMTPS(values.smtps, server);
    config.GetSmtpServerAuthenticationType(values.type, server);
    config.GetSmtpServerAuthenticationUserName(values.userName, server);
    config.GetSmtpServerAuthenticationUserPassword(values.password, server);
    return values;
}

bool Set(Config& config, const Values& values, int server) {
    return config.SetSender(values.sender) && config.SetSenderDescription(values.description) &&
           config.SetRecipients(values.recipients, ";") && config.SetRecipientsCc(values.recipientsCc, ";") &&
           config.SetSmtpServer(values.host, server) && config.SetSmtpServerPort(values.port, server) &&
           config.SetSmtpServerSMTPS(values.smtps, server) &&
           config.SetSmtpServerAuthenticationType(values.type, server) &&
           config.SetSmtpServerAuthenticationUserName(values.userName, server) &&
           config.SetSmtpServerAuthenticationUserPassword(values.password, server);
}

/// A value that comes back as it was given: what XML cannot hold is dropped, and of blanks alone nothing may stay.
std::string Value(CFuzzInput& input) {
    std::string text = ToXml(input.CText(), XmlPlace::Verbatim);
    return text.find_first_not_of(" \t\r\n") == std::string::npos ? std::string() : text;
}

std::string WithoutBlanks(std::string text) {
    std::erase_if(text, [](char c) { return std::string_view(" \t\r\n").find(c) != std::string_view::npos; });
    return text;
}

/// The same for a list of addresses.
std::string List(CFuzzInput& input) {
    std::string list;
    for (const char c : WithoutBlanks(ToXml(input.CText(), XmlPlace::Verbatim))) {
        if (c != ';' || (!list.empty() && list.back() != ';')) {
            list += c;
        }
    }
    return list.ends_with(';') ? list.substr(0, list.size() - 1) : list;
}

/// The element of that name in `parent`, with its text, as another program sees them.
pugi::xml_node Child(const pugi::xml_node& parent, std::string_view name) {
    return parent.find_child(
        [name](const pugi::xml_node& node) { return node.type() == pugi::node_element && name == node.name(); });
}

std::string TextOf(const pugi::xml_node& element) {
    std::string text;
    for (const pugi::xml_node& node : element) {
        if (node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata) {
            text += node.value();
        }
    }
    return text;
}

void CheckSecondReader(const std::string& path, const Values& values) {
    pugi::xml_document document;
    Expect(document.load_file(path.c_str()), "another parser reads a saved file");
    const pugi::xml_node format = Child(Child(Child(document, "Notifications"), "email"), "Format");
    Expect(TextOf(Child(Child(format, "Sender"), "Address")) == values.sender, "another parser finds the sender");
    Expect(TextOf(Child(Child(format, "Sender"), "Description")) == values.description,
           "another parser finds the sender's name");
}

}  // namespace

/// Server, port, sender, name, To, Cc, host, user, password, and the file as it was before.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const CFuzzDirectory directory;
    CFuzzInput input(data, size);
    const int server = static_cast<int>(input.Number());
    Values wanted;
    wanted.port = static_cast<unsigned short>(input.Number());
    wanted.smtps = wanted.port % 2 == 1;
    wanted.type = static_cast<Type>(wanted.port % 3);
    wanted.sender = Value(input);
    wanted.description = Value(input);
    wanted.recipients = List(input);
    wanted.recipientsCc = List(input);
    wanted.host = Value(input);
    wanted.userName = Value(input);
    wanted.password = input.CText();
    const std::string before = input.Rest();

    Config config(directory.Path(), "Notifications.xml");
    directory.Write("Notifications.xml", before);
    const bool isLoaded = config.Load();
    Get(config, server);
    const bool isSet = Set(config, wanted, server);
    const bool canBeSet = server >= 0 && server < Config::kMaxSmtpServers && before.starts_with("<Notifications>");
    Expect(isSet || !isLoaded || !canBeSet, "a loaded file takes all values");
    const bool isSaved = config.Save();
    Expect(isSaved == isLoaded, "a file that could be read is saved, and no other");
    const std::string after = CFuzzDirectory::Read(config.Path());
    if (!isSaved) {
        Expect(after == before, "a damaged file is left alone");
        return 0;
    }
    Config again(directory.Path(), "Notifications.xml");
    Expect(again.Load(), "a saved file can be loaded");
    if (isSet) {
        Expect(Get(again, server) == wanted, "values are read as they were written");
        CheckSecondReader(again.Path(), wanted);
    }
    Expect(again.Save() && WithoutBlanks(CFuzzDirectory::Read(config.Path())) == WithoutBlanks(after),
           "saving what was loaded changes nothing but the indentation");
    return 0;
}
