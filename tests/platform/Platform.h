#pragma once

// What the tests of the platform share.

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/Trace.h"
#include "platform/UniqueFd.h"
#include "support/PrivateNamespace.h"
#include "support/TraceCapture.h"
#include "xml/TempDirectory.h"

using namespace std::chrono_literals;
using namespace std::string_literals;

/// The function of the C library that fails from now on, how, and how often (negative: each time).
struct FailingCall {
    const char* name = "";
    int error = 0;
    int times = -1;
};
inline constinit FailingCall failing;

inline bool Fails(const char* name) {
    return std::strcmp(failing.name, name) == 0 && failing.times != 0 && failing.times-- != 0;
}

/// Takes a function over from the C library, before which a program's own goes.
/// @param specifier  noexcept where the library declares that
#define EM_CAN_FAIL(function, specifier, parameters, ...)                                            \
    extern "C" int function parameters specifier {                                                   \
        static const auto real = reinterpret_cast<int(*) parameters>(::dlsym(RTLD_NEXT, #function)); \
        return Fails(#function) ? failing.error : real(__VA_ARGS__);                                 \
    }

/// A field as it is meant: \n \r \t \v \f \0 \\ as in C, \(1000x) for so many x.
inline std::string Unescape(const std::string& field) {
    constexpr char kMeanings[] = "n\nr\rt\tv\vf\f0\0\\\\";
    std::string text;
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] != '\\') {
            text += field[i];
        } else if (field[++i] == '(') {
            std::size_t digits = 0;
            const auto count = static_cast<std::size_t>(std::stoi(field.substr(i + 1), &digits));
            text += std::string(count, field[i += digits + 1]);
            ++i;
        } else {
            text += kMeanings[std::string(kMeanings, sizeof kMeanings).find(field[i]) + 1];
        }
    }
    return text;
}

/// The rows of a data file beside the tests, each behind the name of its test, with " | " between the fields.
inline std::vector<std::vector<std::string>> Cases(const std::string& file, const std::string& test) {
    std::vector<std::vector<std::string>> rows;
    std::ifstream lines(EM_TEST_DATA "/" + file);
    for (std::string line; std::getline(lines, line);) {
        std::vector<std::string> row;
        for (std::size_t at = 0, end = 0; end != std::string::npos; at = end + 3) {
            end = line.find(" | ", at);
            row.push_back(Unescape(line.substr(at, end - at)));
        }
        if (row[0] == test) {
            rows.push_back(row);
        }
    }
    EXPECT_FALSE(rows.empty()) << test;
    return rows;
}
