#include "tests/protocol/case_files.h"

#include <fstream>
#include <regex>
#include <stdexcept>

#include "protocol/replies.h"

namespace protocol_test {

namespace {

// The same patterns as the Python suite's reader: adjacent bracketed texts or a bare word, and
// one bracketed text with its escapes.
const std::regex kItem(R"(((?:\[(?:\\.|[^\\\]])*\])+)|(\S+))");
const std::regex kText(R"(\[((?:\\.|[^\\\]])*)\])");
const std::regex kEscape(R"(\\(.))");

// Calls `take(lineNumber, line)` for every line that is not blank or a comment.
template <typename Take>
void forEachCase(const std::string& fileName, Take take) {
    std::ifstream in(std::string(CASES_DIR) + "/" + fileName);
    if (!in) throw std::runtime_error("cannot read case file " + fileName);
    int number = 0;
    for (std::string line; std::getline(in, line);) {
        const size_t first = line.find_first_not_of(" \t");
        if (++number, first != std::string::npos && line[first] != '#') take(number, line);
    }
}

std::string unescaped(const std::string& text) {
    std::string out;
    std::sregex_iterator escape(text.begin(), text.end(), kEscape), end;
    size_t copied = 0;
    for (; escape != end; ++escape) {
        out += text.substr(copied, static_cast<size_t>(escape->position()) - copied);
        const char c = escape->str(1)[0];
        out += c == 't' ? '\t' : c == 'r' ? '\r' : c == 'n' ? '\n' : c;
        copied = static_cast<size_t>(escape->position() + escape->length());
    }
    return out + text.substr(copied);
}

// Fields split at `separator`, blanks around each removed; SYNC stands for the sync reply.
std::vector<std::string> fields(const std::string& text, char separator) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t end = 0; end != std::string::npos; start = end + 1) {
        end = text.find(separator, start);
        std::string part = text.substr(start, end == std::string::npos ? end : end - start);
        part.erase(0, part.find_first_not_of(' '));
        part.erase(part.find_last_not_of(' ') + 1);
        const size_t sync = part.find("SYNC");
        if (sync != std::string::npos) part.replace(sync, 4, protocol::kSyncReply);
        parts.push_back(part);
    }
    return parts;
}

}  // namespace

std::vector<Row> readRows(const std::string& fileName) {
    std::vector<Row> rows;
    forEachCase(fileName, [&](int number, const std::string& line) {
        Row& row = rows.emplace_back(Row{number, {}});
        for (std::sregex_iterator found(line.begin(), line.end(), kItem), end; found != end;
             ++found) {
            Item& item = row.items.emplace_back(Item{found->length(1) > 0, found->str(2), {}});
            const std::string texts = found->str(1);
            for (std::sregex_iterator text(texts.begin(), texts.end(), kText); text != end; ++text)
                item.texts.push_back(unescaped(text->str(1)));
        }
    });
    return rows;
}

std::vector<PairingRow> readPairingRows(const std::string& fileName) {
    std::vector<PairingRow> rows;
    forEachCase(fileName, [&](int number, const std::string& line) {
        const std::vector<std::string> parts = fields(line, '|');
        if (parts.size() != 4) throw std::runtime_error("not four fields: " + line);
        PairingRow row{number, parts[0], fields(parts[1], ';'), {}, parts[3] == "pending"};
        if (!parts[2].empty()) row.routed = fields(parts[2], ';');
        rows.push_back(std::move(row));
    });
    return rows;
}

}  // namespace protocol_test
