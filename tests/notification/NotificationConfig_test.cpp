#include <string_view>

#include "notification/Notification.h"

using AuthenticationType = CNotificationConfig::AuthenticationType;

TEST(NotificationConfig, SettersCreateTheWholePathAndKeepThePosition) {
    CNotificationConfig config;
    EXPECT_EQ(config.Path(), "/etc/kestrel/HostwardenSuite/ManagedNode/Notifications/Notifications.xml");
    ASSERT_TRUE(config.SetDoc("<Notifications><x/></Notifications>") && config.FindElem() && config.IntoElem());
    std::string text;
    unsigned short port = 0;
    bool isOn = false;
    AuthenticationType type{};
    const auto keeps = [&](bool isDone) {  // the position
        const CMarkupPosition keep(config);
        return isDone && config.FindElem("x") && config.FindElem("email") && !config.FindElem();
    };
    EXPECT_TRUE(keeps(config.SetSender("a@b")) && keeps(config.GetSender(text)) && text == "a@b");
    EXPECT_TRUE(keeps(config.SetSenderDescription("A & B")) && keeps(config.GetSenderDescription(text)));
    EXPECT_TRUE(text == "A & B" && keeps(config.SetRecipients("anna,,bert; ", " ,;")));
    EXPECT_TRUE(keeps(config.GetRecipients(text, ", ")) && text == "anna, bert");
    EXPECT_TRUE(keeps(config.SetRecipientsCc("x|y", "|")) && keeps(config.GetRecipientsCc(text, nullptr)));
    EXPECT_TRUE(text == "xy" && keeps(config.SetSmtpServer("smtps://h", 1)) && keeps(config.GetSmtpServer(text, 1)));
    EXPECT_TRUE(text == "smtps://h" && keeps(config.SetSmtpServerPort(65535, 1)));
    EXPECT_TRUE(keeps(config.GetSmtpServerPort(port, 1)) && port == 65535 && keeps(config.SetSmtpServerSMTPS(true, 1)));
    EXPECT_TRUE(keeps(config.GetSmtpServerSMTPS(isOn, 1)) && isOn && config.SetSmtpServerSMTPS(false, 0));
    for (const int written : {0, 1, 3, 2}) {
        EXPECT_TRUE(keeps(config.SetSmtpServerAuthenticationType(static_cast<AuthenticationType>(written), 1)));
        EXPECT_TRUE(keeps(config.GetSmtpServerAuthenticationType(type, 1)));
        EXPECT_EQ(static_cast<int>(type), written == 3 ? -1 : written);
    }
    EXPECT_TRUE(keeps(config.SetSmtpServerAuthenticationUserName("me", 1)));
    EXPECT_TRUE(keeps(config.GetSmtpServerAuthenticationUserName(text, 1)) && text == "me");
    EXPECT_TRUE(keeps(config.SetSmtpServerAuthenticationUserPassword("secret", 1)));
    EXPECT_TRUE(keeps(config.GetSmtpServerAuthenticationUserPassword(text, 1)) && text == "secret");
    EXPECT_TRUE(config.SetSmtpServerAuthenticationUserPassword("secret", 0));
    EXPECT_TRUE(config.SetSmtpServerAuthenticationUserPassword("", 0));
    EXPECT_EQ(config.GetDocFormatted(), ReadFile(EM_TEST_DATA "/all-settings.xml"));
    CNotificationConfig empty;
    EXPECT_FALSE(empty.SetSmtpServer("h", -1) || empty.SetSmtpServer("h", 256) || empty.FindElem());
    EXPECT_TRUE(empty.SetSmtpServer("h", 255));
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
    ASSERT_TRUE(config.SetDoc(ReadFile(EM_TEST_DATA "/recipients-before.xml")) && config.FindElem("Notifications"));
    std::string joined;
    EXPECT_TRUE(config.SetRecipients("carl", " ,;") && config.GetRecipients(joined, ";") && joined == "carl") << joined;
    EXPECT_TRUE(config.FindChildElem("email"));  // the position was kept
    EXPECT_EQ(config.GetDocFormatted(), ReadFile(EM_TEST_DATA "/recipients.xml"));
    EXPECT_TRUE(config.SetRecipients("dora,emil,", ",") && config.GetRecipients(joined, "; ") &&
                joined == "dora; emil");
}

TEST(NotificationConfig, WhatOthersWroteHasARule) {
    // what is read: the port (7: missing), type and password; what was written: SMTPS (always off), port,
    // authentication
    for (const auto& row : DataRows(EM_TEST_DATA "/written-by-others.txt")) {
        CNotificationConfig config;
        ASSERT_TRUE(config.SetDoc("<Notifications><email><SMTP><Server><SMTPS>" + row[3] + "</SMTPS><Port>" + row[4] +
                                  "</Port><Authentication " + row[5] +
                                  "</Password></Authentication></Server></SMTP></email></Notifications>"));
        unsigned short port = 7;
        bool isOn = true;
        auto type = AuthenticationType::Smtp;
        std::string value;
        EXPECT_TRUE(config.GetSmtpServerSMTPS(isOn, 0) && !isOn) << row[3];
        EXPECT_TRUE(config.GetSmtpServerPort(port, 0) != (row[0] == "7") && std::to_string(port) == row[0]) << row[4];
        EXPECT_TRUE(config.GetSmtpServerAuthenticationType(type, 0) &&
                    std::to_string(static_cast<int>(type)) == row[1] &&
                    config.GetSmtpServerAuthenticationUserPassword(value, 0) && value == row[2])
            << row[5];
        EXPECT_TRUE(config.SetSmtpServerAuthenticationUserPassword("<p>", 0,
                                                                   CNotificationConfig::PasswordEncryptionType::Plain));
        EXPECT_NE(config.GetDocFormatted().find("<Password>&lt;p&gt;<"), std::string::npos) << row[5];
    }
}
