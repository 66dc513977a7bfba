// SPDX-License-Identifier: MIT
// Reads the golden records of records.txt.
#ifndef GOLDEN_H
#define GOLDEN_H

#include <fstream>
#include <stdexcept>
#include <string>

namespace golden {

enum class Order { little, big };

constexpr Order kOwn = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? Order::little : Order::big;
constexpr Order kOther = kOwn == Order::little ? Order::big : Order::little;

// The bytes of a row: texts in quotes, and hexadecimal digits.
inline std::string bytes_of(const std::string &row) {
    std::string bytes;
    for (size_t at = 0; at < row.size(); at++) {
        if (row[at] == ' ')
            continue;
        if (row[at] == '"') {
            const size_t end = row.find('"', at + 1);
            bytes += row.substr(at + 1, end - at - 1);
            at = end;
        } else {
            bytes += static_cast<char>(std::stoi(row.substr(at, 2), nullptr, 16));
            at++;
        }
    }
    return bytes;
}

// The record of a name in a byte order. Throws when there is none.
inline std::string record(const std::string &name, Order order = kOwn) {
    const std::string begin = order == Order::little ? "little" : "big   ";
    std::ifstream file(GOLDEN_RECORDS);
    std::string line, row;
    bool found = false, inside = false;
    while (std::getline(file, line)) {
        if (line.empty() || line[0] == '#' || line[0] == '[') {
            found = line.rfind("[" + name + "]", 0) == 0;
            continue;
        }
        inside = line[0] == ' ' ? inside : line.rfind(begin, 0) == 0;
        if (found && inside)
            row += line.substr(begin.size());
    }
    if (row.empty())
        throw std::runtime_error("there is no record " + name + " in " GOLDEN_RECORDS);
    return bytes_of(row);
}

} // namespace golden

#endif
