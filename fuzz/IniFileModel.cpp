// SPDX-License-Identifier: Apache-2.0
#include "fuzz/IniFileModel.h"

#include <cstring>

namespace {

constexpr char kBlanks[] = " \t\n\v\f\r";

std::string Trim(std::string text) {
    text.erase(text.find_last_not_of(kBlanks) + 1);
    text.erase(0, text.find_first_not_of(kBlanks));
    return text;
}

bool HasLineBreak(const char* text) {
    return text != nullptr && (std::strchr(text, '\n') != nullptr || std::strchr(text, '\r') != nullptr);
}

}  // namespace

CIniModel::Line CIniModel::Understand(const std::string& bytes) {
    Line line{bytes, Line::Nothing, {}, {}};
    const std::size_t first = bytes.find_first_not_of(kBlanks);
    if (first == std::string::npos || bytes[first] == ';' || bytes[first] == '\0') {
        return line;
    }
    line.kind = Line::Other;
    const std::string content = Trim(bytes.substr(0, bytes.find_first_of(std::string(";\0", 2))));
    const std::size_t close = content.find(']');
    const std::size_t equals = content.find('=');
    if (content[0] == '[' && close != std::string::npos) {
        line.kind = Line::Header;
        line.name = content.substr(1, close - 1);
    } else if (equals != std::string::npos) {
        line.kind = Line::Entry;
        line.name = Trim(content.substr(0, equals));
        line.value = Trim(content.substr(equals + 1));
    }
    return line;
}

CIniModel::CIniModel(const std::string& text) {
    std::size_t at = text.rfind("\xEF\xBB\xBF", 0) == 0 ? 3 : 0;
    mark_ = text.substr(0, at);
    while (at < text.size()) {
        std::string bytes;
        do {
            bytes += text[at++];
        } while (at < text.size() && bytes.back() != '\n' && bytes.size() < 1024);
        lines_.push_back(Understand(bytes));
    }
}

std::string CIniModel::Text() const {
    std::string text = mark_;
    for (const Line& line : lines_) {
        text += line.bytes;
    }
    return text;
}

bool CIniModel::Find(const std::string& section, std::size_t& first, std::size_t& end) const {
    bool found = false;
    for (std::size_t i = 0; i < lines_.size(); ++i) {
        if (lines_[i].kind != Line::Header) {
            continue;
        }
        if (found) {
            end = i;
            return true;
        }
        found = lines_[i].name == section;
        first = i + 1;
    }
    end = lines_.size();
    return found;
}

std::vector<std::string> CIniModel::Sections() const {
    std::vector<std::string> names;
    for (const Line& line : lines_) {
        if (line.kind == Line::Header) {
            names.push_back(line.name);
        }
    }
    return names;
}

std::vector<std::string> CIniModel::Keys(const std::string& section) const {
    std::vector<std::string> names;
    std::size_t i = 0;
    std::size_t end = 0;
    if (Find(section, i, end)) {
        for (; i < end; ++i) {
            if (lines_[i].kind == Line::Entry) {
                names.push_back(lines_[i].name);
            }
        }
    }
    return names;
}

std::optional<std::string> CIniModel::Value(const std::string& section, const std::string& key) const {
    std::size_t i = 0;
    std::size_t end = 0;
    if (Find(section, i, end)) {
        for (; i < end; ++i) {
            if (lines_[i].kind == Line::Entry && lines_[i].name == key) {
                return lines_[i].value;
            }
        }
    }
    return std::nullopt;
}

void CIniModel::Insert(std::size_t at, const std::string& bytes) {
    const bool joins = at > 0 && lines_[at - 1].bytes.back() != '\n' && bytes[0] != '\n';
    lines_.insert(lines_.begin() + static_cast<std::ptrdiff_t>(at), Understand((joins ? "\n" : "") + bytes));
    *this = CIniModel(Text());
}

bool CIniModel::Write(const std::string& section, const char* key, const char* value) {
    if (HasLineBreak(section.c_str()) || HasLineBreak(key) || HasLineBreak(value)) {
        return false;
    }
    const bool isDeletion = key == nullptr || value == nullptr;
    const std::string entry = isDeletion ? "" : std::string(key) + "=" + value + "\n";
    std::size_t first = 0;
    std::size_t end = 0;
    if (!Find(section, first, end)) {
        if (!isDeletion) {
            Insert(lines_.size(), "\n[" + section + "]\n\n" + entry);
        }
        return true;
    }
    const auto at = [this](std::size_t i) { return lines_.begin() + static_cast<std::ptrdiff_t>(i); };
    if (key == nullptr) {
        lines_.erase(at(first - 1), at(end));
        *this = CIniModel(Text());
        return true;
    }
    bool isFirst = true;
    for (std::size_t i = first; i < end; ++i) {
        if (lines_[i].kind == Line::Entry && lines_[i].name == key) {
            lines_.erase(at(i));
            if (isDeletion) {
                *this = CIniModel(Text());
            } else {
                Insert(i, (isFirst ? "\n" : "") + entry);
            }
            return true;
        }
        isFirst = isFirst && lines_[i].kind == Line::Nothing;
    }
    if (!isDeletion) {
        Insert(end, entry);
    }
    return true;
}

bool CIniModel::Copy(const std::string& from, const std::string& to) {
    bool isDone = false;
    for (const std::string& key : Keys(from)) {
        if (!key.empty()) {  // it has no place in a list of names
            isDone = from == to || Write(to, key.c_str(), Value(from, key).value_or("").c_str());
            if (!isDone) {
                return false;
            }
        }
    }
    return isDone;
}

std::string CIniModel::InBuffer(const std::string& value, std::size_t size) {
    std::string bytes = value.substr(0, size - 1);
    const std::size_t count = bytes.size();
    bytes.resize(size);
    return std::to_string(count) + ":" + bytes;
}

std::string CIniModel::InBuffer(const std::vector<std::string>& names, std::size_t size) {
    std::string bytes;
    for (const std::string& name : names) {
        if (!name.empty()) {
            bytes += name + std::string(1, '\0');
        }
    }
    if (bytes.size() + 1 > size) {
        bytes.resize(size < 2 ? 0 : size - 2);
    }
    const std::size_t count = bytes.size();
    bytes.resize(size);
    return std::to_string(count) + ":" + bytes;
}
