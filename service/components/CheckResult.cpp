// SPDX-License-Identifier: Apache-2.0
#include "service/components/CheckResult.h"

#include "service/config/Printable.h"

ComponentStatus StatusOfExit(int exitStatus) {
    return exitStatus >= 0 && exitStatus <= 2 ? static_cast<ComponentStatus>(exitStatus + 1) : ComponentStatus::Unknown;
}

std::string FirstLine(std::string_view output) {
    constexpr std::size_t kLongest = 1000;
    output = output.substr(0, output.find('\n'));
    output = output.substr(0, output.find_last_not_of('\r') + 1);  // of a line that ends as on Windows
    std::string line = Printable(output.substr(0, output.find('|')), kLongest);
    line.resize(line.find_last_not_of(' ') + 1);
    return line;
}
