// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "sip/RapidJsonUtil.h"

class CDataStruct;

/// One command message between the agent and its modules: {"SIP": {"V": 1, "CMD": [...]}} with a current command index.
///
/// Members of a command: "OC" operation code, "OE" its extension, "OI" object id, "CA" cabinet id, "ST" status, "MI"
/// module id (two halves of 16 bits), all unsigned 32-bit numbers, and "DA", the data: a number, a boolean, a string,
/// an array of strings or of numbers, raw bytes as {"RAW": [...]}, or a structured object.
///
/// - Reading accessors address the command `i`. Where "SIP", "CMD", the element, its being an object or the member is
///   missing they return their failure value and leave their outputs as they were; a negative `i` is no command. They
///   throw nothing for bad content, and allocate nothing but the text or bytes that they hand out.
/// - Writers address the current command, which GetCmd() creates where it is missing. Each takes memory from the
///   message's pool, which is given back by JsonInit(), Parse(), assignment and destruction only: begin with a fresh
///   message instead of rewriting one for ever.
/// - Numbers read: an integer gives its low 32 bits; a floating-point number is truncated towards zero, and one outside
///   of the 64-bit range reads as 0.
/// - No lock of its own: many threads may read, or one may write.
class SipJson {  // NOLINT(cppcoreguidelines-special-member-functions): a pool cannot be moved, so that moving copies
public:
    using value = CRapidJsonUtil::value;

    /// As `max` of GetCmdDataString: the whole text.
    static constexpr unsigned long kNoLimit = ULONG_MAX;

    /// A fresh message: no commands, current command index 0.
    SipJson();

    /// Copies the document with all its strings, and the current command index; the context word of a copy is zero.
    /// Values below the 64th level of nesting become null in the copy.
    SipJson(const SipJson& other);
    SipJson& operator=(const SipJson& other);
    ~SipJson() = default;

    /// Resets the document, not the command index, to that of a fresh message. Ends all references into it.
    void JsonInit();

    /// The current command, to be changed. A shorter "CMD" is first extended with empty objects, a damaged envelope
    /// rebuilt. An index that is negative or, where that element does not exist yet, above 65535 is no command: what is
    /// returned then is null, belongs to no command, and is null again at the next call; the message stays as it is.
    /// The reference holds until the message gets further commands or another document.
    value& GetCmd();

    int GetCmdIndex() const { return cmdIndex_; }
    void SetCmdIndex(int index) { cmdIndex_ = index; }

    /// A word of whoever owns the message; opaque, never followed.
    std::uint64_t GetContext() const { return context_; }
    void SetContext(std::uint64_t context) { context_ = context; }

    /// Makes `cmd`, a value of this message, a command with just these members. "OE" and "OI" are left out when 0, "ST"
    /// when `st` is 0xFFFFFFFF.
    void SetCmd(value& cmd, unsigned oc, unsigned oe, unsigned oi, unsigned ca, unsigned st);

    /// Sets the member `key` of `elem`, a value of this message, to `v`; with `omitZero` a `v` of 0 removes it. Of
    /// members of the same name one is left, or none.
    /// @return false when `elem` is not an object or `key` is null
    bool SetCmdElemValue(value& elem, const char* key, unsigned v, bool omitZero);

    /// Sets "ST" of the current command; false when that is not an object.
    bool SetStatus(unsigned st);

    /// The member `key` as a number. A string is read as one: hexadecimal after "0x", octal after "0", else decimal, up
    /// to the first character that does not belong to it; rubbish reads as 0, what exceeds 64 bits as 0xFFFFFFFF.
    /// @return `def` when it is missing or neither a number nor a string
    unsigned GetCmdElemValue(int i, const char* key, unsigned def) const;

    /// The same of the current command; 0, as which SetCmd leaves a member out, when it is missing.
    unsigned GetElem(const char* key) const { return GetCmdElemValue(GetCmdIndex(), key, 0); }

    bool HasCmdElem(int i, const char* key) const;

    /// The JSON type of "DA"; null (0) when there is none.
    rapidjson::Type GetCmdDataType(int i) const;

    /// Bytes of the data: 8 for an integer of any size, 1 for a boolean, length + 1 for a string; for an array of
    /// strings the sum of (length + 1), and 1 more; for an array of numbers 1, 2, 4 or 8 for each, by its value, and 8
    /// for a negative number; the number of raw bytes. 0 for everything else (a lone floating-point number, an empty or
    /// mixed array, a structured object).
    unsigned GetCmdDataSize(int i) const;

    /// "DA" as a number: a number, a boolean (1 or 0), or one to four raw bytes, little-endian; false for anything
    /// else.
    bool GetCmdUIntData(int i, unsigned& out) const;

    /// Sets "DA" of `elem`, a value of this message, to `v`; false when `elem` is not an object.
    bool SetCmdUIntData(value& elem, unsigned v);

    /// "DA" as text: a string, with its zero bytes if it has any, or raw bytes up to the first zero.
    /// @param max  at most so many bytes are handed out; a UTF-8 sequence that does not fit is left out whole
    /// @return false for anything else, also for a raw array with an element that is not a byte
    bool GetCmdDataString(int i, std::string& out, unsigned long max) const;

    /// "DA" as the bytes that GetCmdDataSize counts: raw bytes; strings with their terminating zero, a list of them
    /// with a final zero; integers little-endian; a boolean as 1 or 0.
    /// @return false where GetCmdDataSize has no form, and for a raw array with an element that is not a byte
    bool GetCmdDataStream(int i, std::vector<unsigned char>& out) const;

    /// True when the current command has a "DA" that is not null.
    bool HasReplyData() const;

    /// True when "DA" of the current command is an object other than raw bytes.
    bool HasDataStruct() const;

    /// Copies a structured "DA"; false for any other. Values nested too deeply are null in the copy.
    bool GetCmdDataStruct(int i, CDataStruct& out) const;

    // Each of these sets "DA" and "ST" of the current command; nothing when that is not an object.
    void SetDataUIntValue(unsigned v, unsigned st);
    void SetDataIntValue(int v, unsigned st);
    void SetDataByte(unsigned char b, unsigned st);                                 ///< a number
    void SetReplyDataString(const char* s, unsigned st);                            ///< null counts as ""
    void SetDataStream(const unsigned char* bytes, std::size_t size, unsigned st);  ///< {"RAW": [...]}

    /// Takes over the document in `text` (JSON in UTF-8, whatever its shape); the command index stays.
    /// @return false, with the message unchanged, when it is not valid, nested deeper than 64 levels or followed by
    /// more
    bool Parse(const char* text, std::size_t length);

    /// The document without white space.
    /// @return false, with `out` unchanged, when it is nested deeper than 64 levels
    bool GetJson(std::string& out) const;

    const CRapidJsonUtil::Document& GetDocument() const { return document_; }

    /// The pool of this message, for values that are put into it by hand:
    /// `CRapidJsonUtil::CopyValue(message.GetCmd(), answer, message.GetAllocator())`. Memory of another pool must never
    /// get into a message.
    CRapidJsonUtil::Allocator& GetAllocator() { return pool_; }

private:
    struct WithoutDocument {};
    explicit SipJson(WithoutDocument /*tag*/);

    const value* FindCmd(int i) const;
    const value* FindMember(int i, const char* key) const;
    const value* FindData(int i) const;
    value& Commands();
    void Empty();
    void SetMember(value& object, const value::StringRefType& key, value&& v);
    void SetData(value&& data, unsigned st);

    // Where the pool begins: usual messages need no heap. With it a message takes 1 KiB wherever it is kept.
    static constexpr std::size_t kOwnBytes = 824;

    std::uint64_t context_{};
    alignas(std::max_align_t) char ownMemory_[kOwnBytes];
    CRapidJsonUtil::Allocator pool_;
    CRapidJsonUtil::Document document_;
    value nowhere_;  // served where there is no command
    int cmdIndex_ = 0;
};
static_assert(sizeof(SipJson) == 1008);  // and what the heap adds
