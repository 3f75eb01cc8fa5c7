#pragma once

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
    std::string All() const;
    /// Whether the sink wants prints of those who look for one; it does.
    void SetActive(bool isActive);
    void Clear();
};
