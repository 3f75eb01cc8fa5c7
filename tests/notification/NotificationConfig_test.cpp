#include "notification/NotificationConfig.h"

#include <functional>
#include <string_view>

#include <gtest/gtest.h>

namespace {

using AuthenticationType = CNotificationConfig::AuthenticationType;
using PasswordEncryptionType = CNotificationConfig::PasswordEncryptionType;

}  // namespace

TEST(NotificationConfig, SettersCreateTheWholePath) {
    CNotificationConfig config;
    EXPECT_TRUE(config.SetSender("a@b") && config.SetSenderDescription("A & B"));
    EXPECT_TRUE(config.SetRecipients("anna,,bert; ", " ,;") && config.SetRecipientsCc("dora", " ,;"));
    EXPECT_TRUE(config.SetSmtpServer("smtps://h", 1) && config.SetSmtpServerPort(65535, 1));
    EXPECT_TRUE(config.SetSmtpServerSMTPS(true, 1));
    EXPECT_TRUE(config.SetSmtpServerAuthenticationType(AuthenticationType::Pop3, 1));
    EXPECT_TRUE(config.SetSmtpServerAuthenticationUserName("me", 1));
    EXPECT_TRUE(config.SetSmtpServerAuthenticationUserPassword("secret", 1));
    std::string text = config.GetDocFormatted();
    std::erase_if(text, [](char c) { return c == '\n' || c == ' '; });
    EXPECT_EQ(text.substr(text.find("?>") + 2),
              "<Notifications><email><Format><Sender><Address>a@b</Address><Description>A&amp;B</Description></Sender>"
              "<Recipients><Recipient><Address>anna</Address></Recipient><Recipient><Address>bert</Address></Recipient>"
              "</Recipients><RecipientsCC><RecipientCC><Address>dora</Address></RecipientCC></RecipientsCC></Format>"
              "<SMTP><Server/><Server><Host>smtps://h</Host><Port>65535</Port><SMTPS>true</SMTPS>"
              "<AuthenticationType=\"pop3\"><UserName>me</UserName>"
              "<PasswordEncryption=\"2\">f8s6mivZg++FTemrYkCdMg==</Password></Authentication></Server></SMTP></email>"
              "</Notifications>");
}

TEST(NotificationConfig, GettersReadWhatSettersWroteAndKeepThePosition) {
    CNotificationConfig config;
    EXPECT_EQ(config.Path(), "/etc/kestrel/HostwardenSuite/ManagedNode/Notifications/Notifications.xml");
    ASSERT_TRUE(config.SetDoc("<Notifications><x/></Notifications>") && config.FindElem() && config.IntoElem());
    std::string text;
    unsigned short port = 0;
    bool isOn = false;
    AuthenticationType type{};
    const std::pair<std::function<bool()>, const char*> steps[] = {
        {[&] { return config.SetSender("1") && config.GetSender(text); }, "1"},
        {[&] { return config.SetSenderDescription("2") && config.GetSenderDescription(text); }, "2"},
        {[&] { return config.SetRecipients("3|4", "|") && config.GetRecipients(text, ", "); }, "3, 4"},
        {[&] { return config.SetRecipientsCc("5|6", "|") && config.GetRecipientsCc(text, nullptr); }, "56"},
        {[&] { return config.SetSmtpServer("7", 1) && config.GetSmtpServer(text, 1); }, "7"},
        {[&] { return config.SetSmtpServerPort(1, 0) && config.GetSmtpServerPort(port, 0) && port == 1; }, "7"},
        {[&] { return config.SetSmtpServerSMTPS(true, 0) && config.GetSmtpServerSMTPS(isOn, 0) && isOn; }, "7"},
        {[&] { return config.SetSmtpServerSMTPS(false, 0) && config.GetSmtpServerSMTPS(isOn, 0) && !isOn; }, "7"},
        {[&] {
             return config.SetSmtpServerAuthenticationType(AuthenticationType::Smtp, 0) &&
                    config.GetSmtpServerAuthenticationType(type, 0) && type == AuthenticationType::Smtp &&
                    config.SetSmtpServerAuthenticationType(AuthenticationType::Unknown, 0);
         },
         "7"},
        {[&] {
             return config.SetSmtpServerAuthenticationUserName("8", 0) &&
                    config.GetSmtpServerAuthenticationUserName(text, 0);
         },
         "8"},
        {[&] {
             return config.SetSmtpServerAuthenticationUserPassword("9", 0) &&
                    config.SetSmtpServerAuthenticationUserPassword("", 0) &&
                    config.GetSmtpServerAuthenticationUserPassword(text, 0);
         },
         ""}};
    for (const auto& [step, value] : steps) {
        EXPECT_TRUE(step() && text == value) << value;
        const CMarkupPosition keep(config);
        EXPECT_TRUE(config.FindElem("x") && config.FindElem("email") && !config.FindElem()) << value;
    }
    EXPECT_NE(config.GetDocFormatted().find("<Server>\n        <Port>1</Port>\n        <SMTPS>false</SMTPS>\n"
                                            "        <Authentication>\n          <UserName>8</UserName>\n"
                                            "          <Password />\n        </Authentication>\n      </Server>\n"),
              std::string::npos);
    EXPECT_TRUE(config.SetSmtpServer("h", 255) && !config.SetSmtpServer("h", -1) && !config.SetSmtpServer("h", 256));
}

TEST(NotificationConfig, MissingSettingsLeaveTheCallersValue) {
    for (const char* text : {"", "<Other><email><Format/></email></Other>",
                             "<Notifications><email><Format/><SMTP><Server/></SMTP></email></Notifications>"}) {
        CNotificationConfig config;
        ASSERT_TRUE(config.SetDoc(text));
        std::string value = "kept";
        bool isOn = true;
        auto type = AuthenticationType::Smtp;
        EXPECT_FALSE(config.GetSender(value) || config.GetSenderDescription(value) || config.GetSmtpServer(value, 0) ||
                     config.GetSmtpServerSMTPS(isOn, 0) || config.GetSmtpServerAuthenticationType(type, 0) ||
                     config.GetSmtpServerAuthenticationUserPassword(value, 0) || config.GetSmtpServer(value, -1));
        EXPECT_TRUE(value == "kept" && isOn && type == AuthenticationType::Smtp);
        EXPECT_TRUE(!config.GetRecipients(value, ";") && value.empty());
        EXPECT_EQ(config.SetSender("a@b"), !std::string_view(text).starts_with("<Other"));  // one root element
    }
}

TEST(NotificationConfig, RecipientsAreRewrittenInPlace) {
    CNotificationConfig config;
    ASSERT_TRUE(
        config.SetDoc("<Notifications><email><Format><Recipients><x/>"
                      "<Recipient Id='7'><Name>A</Name><Address>anna</Address></Recipient>"
                      "<Recipient><Address>bert</Address><Address>more</Address></Recipient>"
                      "</Recipients></Format></email></Notifications>"));
    ASSERT_TRUE(config.FindElem("Notifications"));
    std::string joined;
    EXPECT_TRUE(config.SetRecipients("carl", " ,;") && config.GetRecipients(joined, ";"));
    EXPECT_EQ(joined, "carl");
    EXPECT_TRUE(config.FindChildElem("email"));  // the position was kept
    EXPECT_NE(config.GetDocFormatted().find("        <x />\n        <Recipient Id=\"7\">\n          <Name>A</Name>\n"
                                            "          <Address>carl</Address>\n        </Recipient>\n"
                                            "        <Recipient />\n      </Recipients>\n"),
              std::string::npos);
    EXPECT_TRUE(config.SetRecipients("dora,emil,", ",") && config.GetRecipients(joined, "; "));
    EXPECT_EQ(joined, "dora; emil");
}

TEST(NotificationConfig, WhatOthersWroteHasARule) {
    const std::string stored = "f8s6mivZg++FTemrYkCdMg==";
    const struct {
        const char* port;
        int portRead;  // 7: reads as missing
        const char* attributes;
        AuthenticationType typeRead;
        std::string password;
    } cases[] = {
        {"25", 25, "Type='none'><Password Encryption='2'>", AuthenticationType::None, "secret"},
        {" 0065535\n", 65535, "Type='smtp'><Password Encryption=' 02 '>", AuthenticationType::Smtp, "secret"},
        {"65536", 7, "Type='SMTP'><Password Encryption='2x'>", AuthenticationType::Unknown, stored},
        {"25a", 7, "><Password Encryption='1'>", AuthenticationType::Unknown, stored},
        {"", 7, "type='smtp'><Password>", AuthenticationType::Unknown, stored},
    };
    for (const auto& [port, portRead, attributes, typeRead, password] : cases) {
        CNotificationConfig config;
        ASSERT_TRUE(config.SetDoc("<Notifications><email><SMTP><Server><Port>" + std::string(port) +
                                  "</Port><Authentication " + attributes + stored +
                                  "</Password></Authentication></Server></SMTP></email></Notifications>"));
        unsigned short portValue = 7;
        auto type = AuthenticationType::Smtp;
        std::string value;
        EXPECT_EQ(config.GetSmtpServerPort(portValue, 0), portRead != 7) << port;
        EXPECT_EQ(portValue, portRead);
        EXPECT_TRUE(config.GetSmtpServerAuthenticationType(type, 0) && type == typeRead) << attributes;
        EXPECT_TRUE(config.GetSmtpServerAuthenticationUserPassword(value, 0) && value == password) << attributes;
        EXPECT_TRUE(config.SetSmtpServerAuthenticationUserPassword("<p>", 0, PasswordEncryptionType::Plain));
        EXPECT_NE(config.GetDocFormatted().find("<Password>&lt;p&gt;<"), std::string::npos) << attributes;
    }
}
