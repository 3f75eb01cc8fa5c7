#include "mail/HeaderLines.h"

#include <algorithm>

void CHeaderLines::Add(std::string_view name, std::string_view value) {
    AddUnfinished(name, value);
    text_ += lineEnd_;
}

void CHeaderLines::AddUnfinished(std::string_view name, std::string_view value) {
    text_ += OneLine(name);
    text_ += OneLine(value);
}

void CHeaderLines::AddImportance(std::int32_t importance) {
    static constexpr struct {
        std::string_view priority;
        std::string_view importance;
    } kLines[] = {{"5", "Low"}, {"3", "Normal"}, {"1", "High"}};

    if (importance >= 0 && importance < static_cast<std::int32_t>(std::size(kLines))) {
        Add("X-Priority: ", kLines[importance].priority);
        Add("Importance: ", kLines[importance].importance);
    }
}

std::string CHeaderLines::OneLine(std::string_view text) {
    std::string line(text);
    std::replace_if(
        line.begin(), line.end(), [](char c) { return c == '\r' || c == '\n' || c == '\0'; }, ' ');
    return line;
}

std::string CHeaderLines::Join(const std::vector<std::string>& addresses) {
    std::string list;
    for (const std::string& address : addresses) {
        if (&address != &addresses.front()) {
            list += ',';
        }
        list += address;
    }
    return list;
}
