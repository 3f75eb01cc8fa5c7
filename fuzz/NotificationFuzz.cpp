// SPDX-License-Identifier: Apache-2.0
#include <expat.h>
#include <map>
#include <memory>
#include <vector>

#include "fuzz/Fuzz.h"
#include "notification/NotificationConfig.h"
#include "xml/XmlEncoding.h"
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

/// A document as another parser sees it: the text of each element, by the names on the way to it. Of several elements
/// of one name the first has the plain path.
class CSecondReader {
public:
    explicit CSecondReader(const std::string& text) {
        const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(XML_ParserCreate("UTF-8"),
                                                                                  XML_ParserFree);
        XML_SetUserData(parser.get(), this);
        XML_SetElementHandler(parser.get(), Start, End);
        XML_SetCharacterDataHandler(parser.get(), Text);
        isRead_ = XML_Parse(parser.get(), text.data(), static_cast<int>(text.size()), XML_TRUE) == XML_STATUS_OK;
    }

    bool IsRead() const { return isRead_; }
    std::string TextOf(const std::string& path) { return texts_[path]; }

private:
    static void Start(void* self, const char* name, const char** /*attributes*/) {
        auto& reader = *static_cast<CSecondReader*>(self);
        std::string path = reader.path_.empty() ? name : reader.path_.back() + "/" + name;
        const int earlier = reader.counts_[path]++;
        reader.path_.push_back(earlier == 0 ? path : path + "#" + std::to_string(earlier));
    }
    static void End(void* self, const char* /*name*/) { static_cast<CSecondReader*>(self)->path_.pop_back(); }
    static void Text(void* self, const char* text, int length) {
        auto& reader = *static_cast<CSecondReader*>(self);
        reader.texts_[reader.path_.back()].append(text, static_cast<std::size_t>(length));
    }

    bool isRead_ = false;
    std::vector<std::string> path_;
    std::map<std::string, int> counts_;
    std::map<std::string, std::string> texts_;
};

/// The same document with one letter for all beyond ASCII: the other parser knows the fourth edition's letters only,
/// and takes fewer of them in names.
std::string Plain(const std::string& text) {
    std::string plain;
    for (const char c : text) {
        const bool isFollower = (static_cast<unsigned char>(c) & 0xC0) == 0x80;
        if (static_cast<unsigned char>(c) < 0x80) {
            plain += c;
        } else if (!isFollower) {
            plain += "\xC3\xA9";
        }
    }
    return plain;
}

/// Both parsers must agree on what is a document, but for the two things that are refused on purpose, and no text at
/// all.
void CheckAgreement(const Config& config, const std::string& bytes) {
    std::string text;
    if (bytes.empty() || DecodeXml(bytes, text) != nullptr) {
        return;
    }
    const bool isLoaded = config.Status() == Config::LoadStatus::Loaded;
    if (isLoaded) {
        Expect(CSecondReader(Plain(text)).IsRead(), "another parser reads what was loaded");
    } else if (text == Plain(text) && text.find("<!DOCTYPE") == std::string::npos &&
               !config.ErrorText().starts_with("Nested too deep") &&
               !config.ErrorText().starts_with("The declaration")) {  // the other one takes any version
        Expect(!CSecondReader(text).IsRead(), "another parser reads no more than was loaded");
    }
}

void CheckSecondReader(const std::string& text, const Values& values) {
    CSecondReader reader(text);
    if (!reader.IsRead()) {
        Expect(CSecondReader(Plain(text)).IsRead(), "another parser reads a saved file");
        return;
    }
    Expect(reader.TextOf("Notifications/email/Format/Sender/Address") == values.sender,
           "another parser finds the sender");
    Expect(reader.TextOf("Notifications/email/Format/Sender/Description") == values.description,
           "another parser finds the sender's name");
}

}  // namespace

/// Server, port, sender, name, To, Cc, host, user, password, and the file as it was before.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const CTempDirectory directory;
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
    CheckAgreement(config, before);
    Get(config, server);
    const bool isSet = Set(config, wanted, server);
    const bool canBeSet = server >= 0 && server < Config::kMaxSmtpServers && before.starts_with("<Notifications>");
    Expect(isSet || !isLoaded || !canBeSet, "a loaded file takes all values");
    const bool isSaved = config.Save();
    Expect(isSaved == isLoaded, "a file that could be read is saved, and no other");
    const std::string after = ReadFile(config.Path());
    if (!isSaved) {
        Expect(after == before, "a damaged file is left alone");
        return 0;
    }
    Config again(directory.Path(), "Notifications.xml");
    Expect(again.Load(), "a saved file can be loaded");
    if (isSet) {
        Expect(Get(again, server) == wanted, "values are read as they were written");
        CheckSecondReader(after, wanted);
    }
    Expect(again.Save() && WithoutBlanks(ReadFile(config.Path())) == WithoutBlanks(after),
           "saving what was loaded changes nothing but the indentation");
    return 0;
}
