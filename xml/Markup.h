// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <pugixml.hpp>

/// An XML document with a current position, for settings files that other programs write as well.
///
/// The position is a parent, a current element among the parent's children, and a current child of that element.
/// "Before the first" is a position too: `IntoElem` and `ResetPos` lead there, and the next `FindElem` starts with the
/// first element. Every operation costs what it walks over, so reading or writing a list in order is linear.
///
/// What the operations do not touch survives: element order, foreign elements and attributes, comments, declaration.
/// One thread at a time.
class CMarkup {
public:
    enum class LoadStatus {
        Loaded,      ///< the file was read; the document holds it
        Missing,     ///< there is no such file (or none was asked for yet); the document starts empty
        Unreadable,  ///< the file exists but could not be read; the document is empty
        Damaged,     ///< the file is no XML that can be used (see `FindXmlError`); the document is empty
    };

    /// A saved position: cheap to copy, and good until the element that it names is removed. One from before the last
    /// `Load` or `SetDoc` restores to the start.
    class Position {
        friend class CMarkup;
        pugi::xml_node parent_;
        pugi::xml_node element_;
        pugi::xml_node child_;
        unsigned int generation_{};
    };

    CMarkup();
    ~CMarkup() = default;
    CMarkup(const CMarkup&) = delete;
    CMarkup& operator=(const CMarkup&) = delete;

    /// Reads a file: UTF-8, UTF-16, UTF-32 or Latin-1, which bytes that are not UTF-8 are taken for. A file of no bytes
    /// is an empty document: there is nothing in it that somebody could mend.
    /// @return true when the document holds the file; else `Status` and `ErrorText` tell why not. A file that exists
    ///         but could not be loaded should never be saved over.
    bool Load(const std::string& path);

    /// Writes `GetDocFormatted()` to a file, all or nothing (see `ReplaceTextFile`).
    /// @return false, with `ErrorText`, when the file could not be written, or could not be loaded again: a document
    ///         without root element, or of more than 16 MiB. An old file is then untouched.
    bool Save(const std::string& path);

    /// Replaces the document by the one in a text.
    /// @return false when the text is no document; the document is then empty. An empty text is an empty document.
    bool SetDoc(const std::string& text);

    /// The document as UTF-8 text (see `WriteXml`), always with a declaration.
    /// @throw std::bad_alloc
    std::string GetDocFormatted() const;

    LoadStatus Status() const { return status_; }
    /// Why the last `Load`, `SetDoc` or `Save` failed; empty when it did not. It quotes nothing of the document.
    const std::string& ErrorText() const { return error_; }

    /// Goes to the start of the document: before the root element.
    void ResetPos() { MoveTo(document_.root()); }

    /// Goes to the next element of that name (any element without a name) behind the current one.
    /// @return false when there is none; the position then stays
    bool FindElem(const char* name = nullptr);
    /// The same among the children of the current element.
    bool FindChildElem(const char* name = nullptr);

    /// Makes the current element the parent; the current child becomes the current element.
    bool IntoElem();
    /// Makes the parent the current element, and what was current its current child.
    bool OutOfElem();

    /// Appends an element behind the last child of the parent and goes there. A document takes one root element.
    bool AddElem(const char* name);
    /// The same among the children of the current element.
    bool AddChildElem(const char* name);
    /// Removes the current child with all that is in it; the element before it becomes the current child.
    bool RemoveChildElem();

    /// The text of the current element, empty without one.
    std::string GetData() const;
    /// Replaces the text of the current element; elements and comments in it stay.
    bool SetData(const std::string& text);

    /// An attribute of the current element, empty when it has none of that name.
    std::string GetAttrib(const char* name) const;
    bool SetAttrib(const char* name, const std::string& value);
    /// @return true when there was such an attribute
    bool RemoveAttrib(const char* name);

    [[nodiscard]] Position SavePos() const { return position_; }
    void RestorePos(const Position& position);

private:
    void Clear();
    bool Fail(LoadStatus status, std::string text);
    bool Parse(const std::string& text);
    void MoveTo(pugi::xml_node parent, pugi::xml_node element = {}, pugi::xml_node child = {});

    pugi::xml_document document_;
    Position position_;
    LoadStatus status_ = LoadStatus::Missing;
    std::string error_;
};

/// Brings a document back to the position it had when this object was made.
class CMarkupPosition {
public:
    explicit CMarkupPosition(CMarkup& document) : document_(document), position_(document.SavePos()) {}
    ~CMarkupPosition() { document_.RestorePos(position_); }
    CMarkupPosition(const CMarkupPosition&) = delete;
    CMarkupPosition& operator=(const CMarkupPosition&) = delete;

private:
    CMarkup& document_;
    const CMarkup::Position position_;
};
