// Reads the case files in tests/protocol/cases (their syntax is described in the README there):
// each row as the texts and words it holds, with the file's line number for messages.
#pragma once

#include <string>
#include <vector>

namespace protocol_test {

// One item of a row: a bare word, or one or more adjacent bracketed texts.
struct Item {
    bool bracketed = false;
    std::string word;                // a bare word
    std::vector<std::string> texts;  // the bracketed texts, unescaped
};

struct Row {
    int lineNumber = 0;
    std::vector<Item> items;
};

// The rows of a whitespace-separated case file (tokenizer.cases, lines.cases).
std::vector<Row> readRows(const std::string& fileName);

struct PairingRow {
    int lineNumber = 0;
    std::string name;
    std::vector<std::string> events;  // ">LINE" or "<LINE", SYNC already replaced
    std::vector<std::string> routed;  // "reply:LINE", "final:LINE", "stray:LINE"
    bool pending = false;
};

std::vector<PairingRow> readPairingRows(const std::string& fileName);

}  // namespace protocol_test
