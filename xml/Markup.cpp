// SPDX-License-Identifier: Apache-2.0
#include "xml/Markup.h"

#include <cerrno>
#include <string_view>
#include <system_error>

#include "xml/TextFile.h"
#include "xml/XmlEncoding.h"
#include "xml/XmlSyntax.h"
#include "xml/XmlWriter.h"

namespace {

constexpr unsigned int kParseOptions = pugi::parse_full | pugi::parse_ws_pcdata_single;

bool IsText(const pugi::xml_node& node) {
    return node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata;
}

bool IsMatch(const pugi::xml_node& node, const char* name) {
    return node.type() == pugi::node_element && (name == nullptr || std::string_view(name) == node.name());
}

/// The first match behind `current` (from the first child on when `current` is null).
pugi::xml_node FindBehind(const pugi::xml_node& parent, const pugi::xml_node& current, const char* name) {
    pugi::xml_node node = current ? current.next_sibling() : parent.first_child();
    while (node && !IsMatch(node, name)) {
        node = node.next_sibling();
    }
    return node;
}

// The library makes elements and attributes without a name when memory ends, and says nothing.

pugi::xml_node AddChild(pugi::xml_node parent, const char* name) {
    pugi::xml_node added = parent.append_child(pugi::node_element);
    if (added && !added.set_name(name)) {
        parent.remove_child(added);
        return {};
    }
    return added;
}

bool AddAttribute(pugi::xml_node node, const char* name, const std::string& value) {
    pugi::xml_attribute added = node.append_attribute(name);
    if (added.set_name(name) && added.set_value(value.c_str())) {
        return true;
    }
    node.remove_attribute(added);
    return false;
}

}  // namespace

CMarkup::CMarkup() {
    ResetPos();
}

void CMarkup::MoveTo(pugi::xml_node parent, pugi::xml_node element, pugi::xml_node child) {
    position_.parent_ = parent;
    position_.element_ = element;
    position_.child_ = child;
}

void CMarkup::RestorePos(const Position& position) {
    if (position.generation_ == position_.generation_) {
        position_ = position;
    } else {
        ResetPos();
    }
}

void CMarkup::Clear() {
    document_.reset();
    ++position_.generation_;
    ResetPos();
}

bool CMarkup::Fail(LoadStatus status, std::string text) {
    Clear();
    status_ = status;
    error_ = std::move(text);
    return false;
}

bool CMarkup::Load(const std::string& path) {
    status_ = LoadStatus::Unreadable;  // should memory end on the way
    std::string text;
    const int error = ReadTextFile(path, text);
    if (error != 0) {
        return Fail(error == ENOENT ? LoadStatus::Missing : LoadStatus::Unreadable,
                    std::generic_category().message(error));
    }
    if (!SetDoc(text)) {
        return Fail(LoadStatus::Damaged, std::move(error_));
    }
    status_ = LoadStatus::Loaded;
    return true;
}

bool CMarkup::SetDoc(const std::string& text) {
    if (text.empty()) {
        Clear();
        error_.clear();
        return true;
    }
    return Parse(text) || Fail(status_, std::move(error_));
}

bool CMarkup::Parse(const std::string& bytes) {
    Clear();
    std::string text;
    if (const char* const error = DecodeXml(bytes, text); error != nullptr) {
        error_ = error;
    } else {
        error_ = FindXmlError(text);
    }
    if (error_.empty()) {
        const pugi::xml_parse_result result =
            document_.load_buffer(text.data(), text.size(), kParseOptions, pugi::encoding_utf8);
        error_ = result ? "" : result.description();  // no memory
    }
    ResetPos();
    return error_.empty();
}

std::string CMarkup::GetDocFormatted() const {
    return WriteXml(document_);
}

bool CMarkup::Save(const std::string& path) {
    const std::string text = GetDocFormatted();
    int error = text.size() > kMaxTextFileSize ? EFBIG : 0;
    error_ = error == 0 ? FindXmlError(text) : std::string();
    if (error == 0 && error_.empty()) {
        error = ReplaceTextFile(path, text);
    }
    if (error != 0) {
        error_ = std::generic_category().message(error);
    }
    return error_.empty();
}

bool CMarkup::FindElem(const char* name) {
    const pugi::xml_node found = FindBehind(position_.parent_, position_.element_, name);
    if (found) {
        MoveTo(position_.parent_, found);
    }
    return !found.empty();
}

bool CMarkup::FindChildElem(const char* name) {
    const pugi::xml_node found = FindBehind(position_.element_, position_.child_, name);
    if (found) {
        position_.child_ = found;
    }
    return !found.empty();
}

bool CMarkup::IntoElem() {
    if (!position_.element_) {
        return false;
    }
    MoveTo(position_.element_, position_.child_);
    return true;
}

bool CMarkup::OutOfElem() {
    if (position_.parent_.type() != pugi::node_element) {
        return false;
    }
    MoveTo(position_.parent_.parent(), position_.parent_, position_.element_);
    return true;
}

bool CMarkup::AddElem(const char* name) {
    const bool isSecondRoot = position_.parent_.type() == pugi::node_document && !document_.document_element().empty();
    const pugi::xml_node added = isSecondRoot ? pugi::xml_node() : AddChild(position_.parent_, name);
    if (added) {
        MoveTo(position_.parent_, added);
    }
    return !added.empty();
}

bool CMarkup::AddChildElem(const char* name) {
    const pugi::xml_node added = AddChild(position_.element_, name);
    if (added) {
        position_.child_ = added;
    }
    return !added.empty();
}

bool CMarkup::RemoveChildElem() {
    const pugi::xml_node removed = position_.child_;
    pugi::xml_node before = removed.previous_sibling();
    while (before && !IsMatch(before, nullptr)) {
        before = before.previous_sibling();
    }
    if (!position_.element_.remove_child(removed)) {
        return false;
    }
    position_.child_ = before;
    return true;
}

std::string CMarkup::GetData() const {
    std::string text;
    for (const pugi::xml_node& node : position_.element_) {
        if (IsText(node)) {
            text += node.value();
        }
    }
    return text;
}

bool CMarkup::SetData(const std::string& text) {
    pugi::xml_node node = position_.element_.first_child();
    while (node) {
        const pugi::xml_node next = node.next_sibling();
        if (IsText(node)) {
            position_.element_.remove_child(node);
        }
        node = next;
    }
    return text.empty() ? !position_.element_.empty()
                        : position_.element_.prepend_child(pugi::node_pcdata).set_value(text.c_str());
}

std::string CMarkup::GetAttrib(const char* name) const {
    return position_.element_.attribute(name).value();
}

bool CMarkup::SetAttrib(const char* name, const std::string& value) {
    pugi::xml_attribute attribute = position_.element_.attribute(name);
    return attribute ? attribute.set_value(value.c_str()) : AddAttribute(position_.element_, name, value);
}

bool CMarkup::RemoveAttrib(const char* name) {
    return position_.element_.remove_attribute(name);
}
