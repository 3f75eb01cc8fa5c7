#include "command/link/ModuleLink.h"

#include <array>
#include <ctime>

std::string Rfc3339(std::time_t time) {
    std::tm utc{};
    ::gmtime_r(&time, &utc);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%FT%TZ", &utc);
    return text.data();
}
