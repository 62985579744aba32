// Test tables kept as text in tests/data: one row a line, fields separated by " | ".
#pragma once

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

// Lines that begin with "#" and empty lines are skipped. In a field, \t \n \r \\ \| and \xNN
// stand for their bytes, and a field that is only "\e" is empty. A table that cannot be read
// ends the test program at once: a missing table must never pass as an empty one.
namespace testtable {

using ROW = std::vector<std::string>;

inline std::string unescape(const std::string &text) {
    if (text == "\\e")
        return {};
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            out += text[i];
            continue;
        }
        char code = text[++i];
        if (code == 't')
            out += '\t';
        else if (code == 'n')
            out += '\n';
        else if (code == 'r')
            out += '\r';
        else if (code == 'x' && i + 2 < text.size() + 1) {
            out += char(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else
            out += code; // \\ and \|
    }
    return out;
}

// The rows of tests/data/<name>.
inline std::vector<ROW> read(const std::string &name) {
    std::ifstream in(std::string(VW_TEST_DATA) + "/" + name);
    if (!in) {
        fprintf(stderr, "test table %s cannot be read\n", name.c_str());
        std::abort();
    }
    std::vector<ROW> rows;
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#')
            continue;
        ROW row;
        size_t begin = 0;
        for (;;) {
            size_t bar = line.find(" | ", begin);
            while (bar != std::string::npos && bar > 0 && line[bar - 1] == '\\')
                bar = line.find(" | ", bar + 1);
            row.push_back(unescape(line.substr(begin, bar - begin)));
            if (bar == std::string::npos)
                break;
            begin = bar + 3;
        }
        rows.push_back(row);
    }
    return rows;
}

} // namespace testtable
