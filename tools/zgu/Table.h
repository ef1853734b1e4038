#pragma once

// Plain-text tables for the summaries zgu prints: columns padded to their
// widest cell, the first row underlined.

#include <ostream>
#include <string>
#include <vector>

namespace Zorvan::Tool {

class Table {
public:
    explicit Table(std::vector<std::string> header);
    void Add(std::vector<std::string> row);
    void Print(std::ostream& out) const;

private:
    std::vector<std::vector<std::string>> rows_;
};

// Fixed-point text with the given number of decimals.
std::string Fixed(double value, int decimals);

} // namespace Zorvan::Tool
