#include "tests/protocol/case_files.h"

#include <fstream>
#include <stdexcept>

#include "protocol/replies.h"

namespace protocol_test {

namespace {

std::vector<std::string> contentLines(const std::string& fileName) {
    std::ifstream in(std::string(CASES_DIR) + "/" + fileName);
    if (!in) throw std::runtime_error("cannot read case file " + fileName);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

bool isContent(const std::string& line) {
    const size_t first = line.find_first_not_of(" \t");
    return first != std::string::npos && line[first] != '#';
}

char unescaped(char c) {
    return c == 't' ? '\t' : c == 'r' ? '\r' : c == 'n' ? '\n' : c;
}

// Reads "[...]" starting at `at` (on the "["), returns the position after its "]".
size_t readBracketed(const std::string& line, size_t at, std::string& text) {
    for (size_t i = at + 1; i < line.size(); ++i) {
        if (line[i] == ']') return i + 1;
        if (line[i] == '\\' && i + 1 < line.size())
            ++i, text += unescaped(line[i]);
        else
            text += line[i];
    }
    throw std::runtime_error("unterminated [ in: " + line);
}

std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(' ');
    return first == std::string::npos ? ""
                                      : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::vector<std::string> splitTrimmed(const std::string& text, char separator) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t end; (end = text.find(separator, start)) != std::string::npos; start = end + 1)
        parts.push_back(trimmed(text.substr(start, end - start)));
    parts.push_back(trimmed(text.substr(start)));
    return parts;
}

std::string withSync(std::string text) {
    const size_t at = text.find("SYNC");
    return at == std::string::npos ? text : text.replace(at, 4, protocol::kSyncReply);
}

}  // namespace

std::vector<Row> readRows(const std::string& fileName) {
    std::vector<Row> rows;
    const std::vector<std::string> lines = contentLines(fileName);
    for (size_t n = 0; n < lines.size(); ++n) {
        const std::string& line = lines[n];
        if (!isContent(line)) continue;
        Row row;
        row.lineNumber = static_cast<int>(n + 1);
        for (size_t i = 0; i < line.size();) {
            if (line[i] == ' ' || line[i] == '\t') {
                ++i;
                continue;
            }
            Item item;
            item.bracketed = line[i] == '[';
            if (item.bracketed) {
                while (i < line.size() && line[i] == '[')
                    i = readBracketed(line, i, item.texts.emplace_back());
            } else {
                const size_t end = line.find_first_of(" \t", i);
                item.word = line.substr(i, end - i);
                i = end == std::string::npos ? line.size() : end;
            }
            row.items.push_back(std::move(item));
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

std::vector<PairingRow> readPairingRows(const std::string& fileName) {
    std::vector<PairingRow> rows;
    const std::vector<std::string> lines = contentLines(fileName);
    for (size_t n = 0; n < lines.size(); ++n) {
        if (!isContent(lines[n])) continue;
        const std::vector<std::string> fields = splitTrimmed(lines[n], '|');
        if (fields.size() != 4) throw std::runtime_error("not four fields: " + lines[n]);
        PairingRow row;
        row.lineNumber = static_cast<int>(n + 1);
        row.name = fields[0];
        for (const std::string& event : splitTrimmed(fields[1], ';'))
            row.events.push_back(withSync(event));
        if (!fields[2].empty())
            for (const std::string& routed : splitTrimmed(fields[2], ';'))
                row.routed.push_back(withSync(routed));
        row.pending = fields[3] == "pending";
        rows.push_back(std::move(row));
    }
    return rows;
}

}  // namespace protocol_test
