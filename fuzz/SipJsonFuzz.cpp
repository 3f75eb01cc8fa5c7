// SPDX-License-Identifier: Apache-2.0
#include <climits>

#include "fuzz/Fuzz.h"
#include "sip/DataStruct.h"
#include "sip/SipJson.h"

namespace {

std::string Print(const SipJson& message) {
    std::string text;
    Expect(message.GetJson(text), "a message that was read can be printed");
    return text;
}

/// All that reads command `i`.
void Read(const SipJson& message, int i) {
    const unsigned int size = message.GetCmdDataSize(i);
    std::vector<unsigned char> bytes;
    Expect(!message.GetCmdDataStream(i, bytes) || bytes.size() == size, "the bytes of the data are as many as stated");

    std::string whole;
    if (message.GetCmdDataString(i, whole, SipJson::kNoLimit)) {
        std::string cut;
        for (const unsigned long max : {0UL, 1UL, 5UL}) {
            message.GetCmdDataString(i, cut, max);
            Expect(cut.size() <= max && whole.starts_with(cut), "a cut text is the beginning of the text");
        }
    }
    for (const char* key : {"OC", "OE", "OI", "CA", "ST", "MI", "DA"}) {
        Expect(message.HasCmdElem(i, key) || message.GetCmdElemValue(i, key, 77) == 77,
               "what is missing reads as such");
    }
    CDataStruct data;
    if (message.GetCmdDataStruct(i, data)) {
        std::string pretty;
        CDataStruct::GetPrettyJson(pretty, data.Get(), ' ', 4);
        Expect(SipJson().Parse(pretty.data(), pretty.size()), "a printed structure can be read");
    }
}

/// Each writer first of all, to a message that no other has repaired, with what does not fit into the message itself.
void WriteFirst(const SipJson& original) {
    const std::string text(1500, 'x');
    const std::vector<unsigned char> bytes(1500, 'x');
    const int i = original.GetCmdIndex();
    for (int writer = 0; writer < 5; ++writer) {
        SipJson message(original);
        std::string read = text;
        switch (writer) {
            case 0:
                message.SetReplyDataString(text.c_str(), 4);
                message.GetCmdDataString(i, read, SipJson::kNoLimit);
                break;
            case 1:
                message.SetDataStream(bytes.data(), bytes.size(), 4);
                message.GetCmdDataString(i, read, SipJson::kNoLimit);
                break;
            case 2:
                message.SetStatus(4);
                break;
            case 3:
                message.SetDataByte(1, 4);
                break;
            default:
                message.SetCmdUIntData(message.GetCmd(), 4);
        }
        Expect(read == text || !message.GetCmd().IsObject(), "what is written first is read as written");
        const std::string printed = Print(message);
        Expect(SipJson().Parse(printed.data(), printed.size()), "what was written first can be read");
    }
}

/// All that writes, to the command at the message's index.
void Write(SipJson& message) {
    const bool isObject = message.GetCmd().IsObject();
    const int i = message.GetCmdIndex();
    unsigned int number = 0;
    message.SetDataIntValue(-5, 3);
    Expect(!isObject || (message.GetCmdUIntData(i, number) && number == 0xFFFFFFFB), "a number is read as written");
    message.SetReplyDataString("reply", 4);
    std::string text;
    Expect(!isObject || (message.GetCmdDataString(i, text, SipJson::kNoLimit) && text == "reply"),
           "a text is read as written");
    const std::vector<unsigned char> sent = {1, 0, 255};
    std::vector<unsigned char> received;
    message.SetDataStream(sent.data(), sent.size(), 5);
    Expect(!isObject || (message.GetCmdDataStream(i, received) && received == sent), "bytes are read as written");
    Expect(message.SetStatus(9) == isObject, "an object takes a status");
    Expect(!isObject || message.GetCmdElemValue(i, "ST", 0) == 9, "a status is read as written");
    message.SetCmd(message.GetCmd(), 1, 0, 2, 3, 0xFFFFFFFF);
    Expect(message.GetCmdElemValue(i, "OI", 0) == 2, "a command is read as written");
}

}  // namespace

/// The number of a command, "~", a document.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CFuzzInput input(data, size);
    const int index = static_cast<int>(input.Number() % 8);
    const std::string text = input.Rest();

    SipJson message;
    const std::string fresh = Print(message);
    if (!message.Parse(text.data(), text.size())) {
        Expect(Print(message) == fresh, "a refused text changes nothing");
        return 0;
    }
    const std::string printed = Print(message);
    SipJson again;
    Expect(again.Parse(printed.data(), printed.size()), "a printed message can be read");
    // A floating-point number may come back as its neighbour: reading them exactly is undefined behaviour in RapidJSON.
    const bool mayHoldFloat = printed.find_first_of(".e") != std::string::npos;
    Expect(mayHoldFloat || Print(again) == printed, "a printed message is read as it was");

    message.SetCmdIndex(index);
    for (const int i : {-1, 0, index, INT_MAX}) {
        Read(message, i);
    }
    static_cast<void>(message.HasReplyData());
    static_cast<void>(message.HasDataStruct());
    SipJson copy(message);
    Expect(Print(copy) == printed, "a copy equals its original");
    WriteFirst(message);
    if (index >= 0) {
        Write(copy);
    } else {
        copy.SetDataByte(1, 0);
    }
    Expect(Print(message) == printed, "a copy shares nothing with its original");
    return 0;
}
