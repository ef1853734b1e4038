#include "Table.h"

#include <algorithm>
#include <iomanip>
#include <sstream>

namespace Zorvan::Tool {

Table::Table(std::vector<std::string> header)
{
    rows_.push_back(std::move(header));
}

void Table::Add(std::vector<std::string> row)
{
    row.resize(rows_.front().size());
    rows_.push_back(std::move(row));
}

void Table::Print(std::ostream& out) const
{
    std::vector<std::size_t> widths(rows_.front().size(), 0);
    for (auto const& row : rows_)
        for (std::size_t c = 0; c < row.size(); ++c)
            widths[c] = std::max(widths[c], row[c].size());
    auto printRow = [&](std::vector<std::string> const& row) {
        std::string line;
        for (std::size_t c = 0; c < row.size(); ++c) {
            line += row[c];
            if (c + 1 < row.size())
                line += std::string(widths[c] - row[c].size() + 2, ' ');
        }
        out << line << '\n';
    };
    printRow(rows_.front());
    std::size_t total = 0;
    for (std::size_t w : widths)
        total += w + 2;
    out << std::string(total - 2, '-') << '\n';
    for (std::size_t r = 1; r < rows_.size(); ++r)
        printRow(rows_[r]);
}

std::string Fixed(double value, int decimals)
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(decimals) << value;
    return text.str();
}

} // namespace Zorvan::Tool
