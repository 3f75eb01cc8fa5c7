// SPDX-License-Identifier: Apache-2.0
#include "xml/XmlWriter.h"

#include <string_view>

#include "xml/XmlText.h"

namespace {

constexpr int kMaxIndent = 8;

class CXmlWriter {
public:
    void Write(const pugi::xml_node& node, int level);
    void WriteDeclaration(const pugi::xml_node& declaration);
    std::string& Text() { return text_; }

private:
    void StartLine(int level);
    void WriteElement(const pugi::xml_node& element, int level);
    void WriteAttributes(const pugi::xml_node& node);
    void WriteMarkup(const char* start, const pugi::xml_node& node, const char* end);

    std::string text_;
    bool breaksLine_ = true;  // false beside text, which a line break would change
};

void CXmlWriter::StartLine(int level) {
    if (breaksLine_ && level <= kMaxIndent) {
        text_ += '\n';  // behind the declaration at least
        text_.append(2 * static_cast<std::size_t>(level), ' ');
    }
}

void CXmlWriter::Write(const pugi::xml_node& node, int level) {
    const bool isText = node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata;
    if (!isText) {
        StartLine(level);
    }
    switch (node.type()) {
        case pugi::node_element:
            WriteElement(node, level);
            break;
        case pugi::node_pcdata:
            text_ += ToXml(node.value(), XmlPlace::Text);
            break;
        case pugi::node_cdata:
            WriteMarkup("<![CDATA[", node, "]]>");
            break;
        case pugi::node_comment:
            WriteMarkup("<!--", node, "-->");
            break;
        case pugi::node_doctype:
            WriteMarkup("<!DOCTYPE ", node, ">");
            break;
        default:  // a processing instruction
            text_.append("<?").append(node.name());
            WriteMarkup(*node.value() == '\0' ? "" : " ", node, "?>");
    }
    breaksLine_ = !isText && level <= kMaxIndent;
}

void CXmlWriter::WriteElement(const pugi::xml_node& element, int level) {
    text_.append("<").append(element.name());
    WriteAttributes(element);
    if (element.first_child().empty()) {
        text_ += " />";
        return;
    }
    text_ += '>';
    breaksLine_ = true;
    for (const pugi::xml_node& child : element) {
        Write(child, level + 1);
    }
    StartLine(level);
    text_.append("</").append(element.name()).append(">");
}

void CXmlWriter::WriteAttributes(const pugi::xml_node& node) {
    for (const pugi::xml_attribute& attribute : node.attributes()) {
        text_.append(" ").append(attribute.name()).append("=\"");
        text_.append(ToXml(attribute.value(), XmlPlace::Attribute)).append("\"");
    }
}

void CXmlWriter::WriteMarkup(const char* start, const pugi::xml_node& node, const char* end) {
    text_.append(start).append(ToXml(node.value(), XmlPlace::Verbatim)).append(end);
}

/// The text is UTF-8, whatever the file was.
void CXmlWriter::WriteDeclaration(const pugi::xml_node& declaration) {
    if (declaration.empty()) {
        text_ += R"(<?xml version="1.0" encoding="UTF-8"?>)";
        return;
    }
    text_ += "<?xml";
    for (const pugi::xml_attribute& attribute : declaration.attributes()) {
        const bool isEncoding = std::string_view(attribute.name()) == "encoding";
        text_.append(" ").append(attribute.name()).append("=\"");
        text_.append(isEncoding ? "UTF-8" : attribute.value()).append("\"");
    }
    text_ += "?>";
}

}  // namespace

std::string WriteXml(const pugi::xml_document& document) {
    CXmlWriter writer;
    const pugi::xml_node first = document.first_child();
    const bool isDeclared = first.type() == pugi::node_declaration;
    writer.WriteDeclaration(isDeclared ? first : pugi::xml_node());
    for (pugi::xml_node node = isDeclared ? first.next_sibling() : first; node; node = node.next_sibling()) {
        writer.Write(node, 0);
    }
    return std::move(writer.Text()) + "\n";
}
