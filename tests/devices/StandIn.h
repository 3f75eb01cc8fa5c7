#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "agent/BusIoDriver.h"

/// @return false when the condition did not become true in time
template <typename Condition>
bool WaitUntil(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    return condition();
}

/// A test with the stand-in switched on, its port log and the frequencies of the tones that it heard.
class StandIn : public ::testing::Test {
protected:
    StandIn()
        : driver_(std::in_place, BusIoDriverOptions{{}, log_, [this](const std::string& line) {
                                                        const std::lock_guard guard(lock_);
                                                        tones_.push_back(line.substr(0, line.find(" for")));
                                                    }}) {}
    void TearDown() override { std::filesystem::remove(log_); }

    std::string PortLog() const {
        std::ifstream file(log_);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    std::vector<std::string> Tones() {
        const std::lock_guard guard(lock_);
        return tones_;
    }

private:
    const std::string log_ = ::testing::TempDir() + "ports." + std::to_string(::getpid());
    std::mutex lock_;
    std::vector<std::string> tones_;

protected:
    std::optional<CBusIoDriver> driver_;
};
