// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <vector>

/// Records what the code under test prints while it lives. Test programs export the sink under the name that the agent
/// uses, so prints take the same road as in the product.
class CTraceCapture {
public:
    explicit CTraceCapture(unsigned int level = 5);
    ~CTraceCapture();
    CTraceCapture(const CTraceCapture&) = delete;
    CTraceCapture& operator=(const CTraceCapture&) = delete;

    /// All prints so far, in order, each with the newlines it was printed with.
    std::vector<std::string> Prints() const;

    /// True when some print holds `text`.
    bool Has(const std::string& text) const;
    int Count(const std::string& text) const;
    /// Waits, 20 s at most, until `count` prints hold `text`.
    bool Await(const std::string& text, int count = 1) const;
    /// Does something within the next print that holds `text`, on the thread that prints.
    void Once(const std::string& text, std::function<void()> what) const;
    std::string All() const;
    /// Whether the sink wants prints of those who look for one; it does.
    void SetActive(bool isActive);
    void Clear();
};

/// Runs a scenario, which must print the same each time, at each of the levels 1 to 5. Returns a line for each print in
/// which `wanted`, an expression, is found: its level, and its text with newlines as "\n" and addresses, thread ids,
/// descriptors and times as "#". A capture that the scenario brings along sees the prints of the level that runs.
std::string TracesByLevel(const std::function<void()>& scenario, const std::string& wanted = "");
