// SPDX-License-Identifier: Apache-2.0
#include "fuzz/Fuzz.h"
#include "mail/texts/AlertMailTexts.h"

namespace {

/// Answers every request with the same text.
class CAnswers final : public CIAgentValues {
public:
    explicit CAnswers(std::string text) : text_(std::move(text)) {}

    bool RequestText(unsigned int, unsigned int opCodeExt, unsigned int, std::string& text) override {
        if (opCodeExt % 2 == text_.size() % 2) {
            return false;
        }
        text = text_;
        return true;
    }
    bool RequestNumber(unsigned int, unsigned int, unsigned int, unsigned int& number) override {
        number = static_cast<unsigned int>(text_.size());
        return true;
    }
    bool RequestMessageTemplate(std::uint32_t errorCode, std::string& messageTemplate) override {
        messageTemplate = text_;
        return errorCode % 2 == 0;
    }

private:
    const std::string text_;
};

void CheckRecord(const CLogMsgArguments& record) {
    std::size_t total = CLogMsgArguments::kHeaderSize;
    for (const std::string& argument : record.Arguments()) {
        Expect(argument.find('\0') == std::string::npos, "an argument ends at its zero");
        total += argument.size();
    }
    Expect(total <= std::max(record.Bytes().size(), CLogMsgArguments::kHeaderSize),
           "arguments lie within their record");
}

}  // namespace

/// Language, status, the agent's answer, subject, text, a component's name and designation, an argument record.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CFuzzInput input(data, size);
    MailSettings settings;
    settings.language = static_cast<std::uint16_t>(input.Number());
    const auto status = static_cast<unsigned char>(input.Number());
    settings.importance = status;
    CAnswers answers(input.Text());
    settings.alertSubject = settings.updateSubject = settings.senderName = input.Text();
    settings.alertMessage = settings.updateMessage = settings.recipients = input.Text();
    settings.senderAddress = "root@example.com";
    const std::string name = input.Text();
    const std::string designation = input.Text();
    const std::string rest = input.Rest();
    const CLogMsgArguments record(std::vector<unsigned char>(rest.begin(), rest.end()));

    CheckRecord(record);
    CAlertMailTexts texts(settings, answers);
    CSmtpMessage statusMail;
    texts.CreateSystemStatusMail(statusMail, status, static_cast<unsigned char>(status >> 4), name, designation);
    CSmtpMessage updateMail;
    texts.CreateUpdateStatusMail(updateMail, record);
    for (const CSmtpMessage* mail : {&statusMail, &updateMail}) {
        Expect(HasNoLoneLineFeed(mail->Text()), "the lines of a finished text end with CR LF");
        Expect(mail->Sender().find("root@example.com") != std::string::npos, "the sender is the configured one");
    }
    return 0;
}
