#include "xml/Markup.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <new>
#include <span>
#include <string_view>
#include <system_error>

#include "xml/TextFile.h"
#include "xml/XmlText.h"

namespace {

/// Indentation makes the output of a deep tree grow with the square of its depth.
constexpr int kMaxDepth = 64;

/// parse_fragment lets text beside the root element through, so that IsOneTree sees and refuses it.
constexpr unsigned int kParseOptions = pugi::parse_full | pugi::parse_ws_pcdata_single | pugi::parse_fragment;

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

bool IsOneTree(const pugi::xml_document& document) {
    int elements = 0;
    for (const pugi::xml_node& node : document) {
        elements += node.type() == pugi::node_element ? 1 : 0;
        if (IsText(node)) {
            return false;
        }
    }
    return elements == 1;
}

class CDepthCheck final : public pugi::xml_tree_walker {
public:
    bool for_each(pugi::xml_node& node) override { return node.type() != pugi::node_element || depth() < kMaxDepth; }
};

/// Anything else there is no XML, and readers that look for "encoding" in it read on in another character set.
bool BelongsToDeclaration(std::string_view attribute) {
    return attribute == "version" || attribute == "encoding" || attribute == "standalone";
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

/// Copies what a node holds into an empty one, with every text in the form that stands in a file. The library's own
/// escaping leaves one of the two quotes alone and writes references that no XML reader accepts; its own copy leaves
/// out what there is no memory for.
/// @return false when memory ended
bool CopyForFile(const pugi::xml_node& from, pugi::xml_node to) {
    const XmlPlace place = from.type() == pugi::node_pcdata ? XmlPlace::Text : XmlPlace::Verbatim;
    if ((*from.name() != '\0' && !to.set_name(from.name())) ||
        (*from.value() != '\0' && !to.set_value(ToXml(from.value(), place).c_str()))) {
        return false;
    }
    for (const pugi::xml_attribute& attribute : from.attributes()) {
        if (from.type() == pugi::node_declaration && !BelongsToDeclaration(attribute.name())) {
            continue;
        }
        if (!AddAttribute(to, attribute.name(), ToXml(attribute.value(), XmlPlace::Attribute))) {
            return false;
        }
    }
    return std::all_of(from.begin(), from.end(), [&to](const pugi::xml_node& child) {
        const pugi::xml_node copy = to.append_child(child.type());
        return copy && CopyForFile(child, copy);
    });
}

class CStringWriter final : public pugi::xml_writer {
public:
    void write(const void* data, std::size_t size) override { text_.append(static_cast<const char*>(data), size); }
    std::string& Text() { return text_; }

private:
    std::string text_;
};

pugi::xml_node Declaration(const pugi::xml_document& document) {
    const pugi::xml_node first = document.first_child();
    return first.type() == pugi::node_declaration ? first : pugi::xml_node();
}

bool EqualsIgnoringCase(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); });
}

constexpr std::string_view kLatin1Names[] = {"ISO-8859-1", "latin1"};

bool NamesEncodingOf(const pugi::xml_document& document, std::span<const std::string_view> names) {
    const std::string_view name = Declaration(document).attribute("encoding").value();
    return std::any_of(names.begin(), names.end(),
                       [&](std::string_view known) { return EqualsIgnoringCase(known, name); });
}

/// True when the declaration of a byte-wise file names an encoding that the parser does not know.
bool IsForeignEncoding(const pugi::xml_document& document) {
    constexpr std::string_view kOtherNames[] = {"", "UTF-8", "US-ASCII"};
    return !NamesEncodingOf(document, kOtherNames) && !NamesEncodingOf(document, kLatin1Names);
}

/// Entities of the document's own are left as they stand by the parser, and would be escaped on writing.
bool HasOwnEntities(const pugi::xml_document& document) {
    return std::any_of(document.begin(), document.end(), [](const pugi::xml_node& node) {
        return node.type() == pugi::node_doctype &&
               std::string_view(node.value()).find("<!ENTITY") != std::string_view::npos;
    });
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
    if (!Parse(text)) {
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

bool CMarkup::Parse(const std::string& text) {
    Clear();
    error_.clear();
    pugi::xml_parse_result result = document_.load_buffer(text.data(), text.size(), kParseOptions);
    if (result.encoding == pugi::encoding_latin1 && IsUtf8(text) && !NamesEncodingOf(document_, kLatin1Names)) {
        // The parser takes the name from anywhere in the declaration; every save would encode the text once more.
        result = document_.load_buffer(text.data(), text.size(), kParseOptions, pugi::encoding_utf8);
    } else if (result.encoding == pugi::encoding_utf8 && !IsUtf8(text)) {
        result = document_.load_buffer(text.data(), text.size(), kParseOptions, pugi::encoding_latin1);
    }
    ResetPos();
    const bool isBytewise = result.encoding == pugi::encoding_utf8 || result.encoding == pugi::encoding_latin1;
    CDepthCheck depthCheck;
    if (!result) {
        error_ = std::string(result.description()) + " at offset " + std::to_string(result.offset);
    } else if (!IsOneTree(document_)) {
        error_ = "Not exactly one root element";
    } else if (isBytewise && text.find('\0') != std::string::npos) {
        error_ = "Zero byte at offset " + std::to_string(text.find('\0'));
    } else if (isBytewise && IsForeignEncoding(document_)) {
        error_ = "Unknown encoding";
    } else if (HasOwnEntities(document_)) {
        error_ = "Entity declarations are not supported";
    } else if (!document_.traverse(depthCheck)) {
        error_ = "Nested too deep";
    }
    return error_.empty();
}

std::string CMarkup::GetDocFormatted() const {
    pugi::xml_document copy;
    bool isWhole = CopyForFile(document_.root(), copy.root());
    pugi::xml_node declaration = Declaration(copy);
    if (!declaration) {
        declaration = copy.prepend_child(pugi::node_declaration);
        isWhole = isWhole && AddAttribute(declaration, "version", "1.0") && AddAttribute(declaration, "encoding", "");
    }
    // The text is UTF-8, whatever the file was.
    if (pugi::xml_attribute encoding = declaration.attribute("encoding"); encoding) {
        isWhole = encoding.set_value("UTF-8") && isWhole;
    }
    if (!isWhole) {
        throw std::bad_alloc();
    }
    CStringWriter writer;
    copy.save(writer, "  ", pugi::format_indent | pugi::format_no_escapes, pugi::encoding_utf8);
    return std::move(writer.Text());
}

bool CMarkup::Save(const std::string& path) {
    const int error = ReplaceTextFile(path, GetDocFormatted());
    error_ = error == 0 ? std::string() : std::generic_category().message(error);
    return error == 0;
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
