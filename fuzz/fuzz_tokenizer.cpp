// Fuzzes the command language on arbitrary text: the split, the quote-aware tokenizer and the
// line parser. The case files pin the exact tokens; this target checks the properties that hold
// for every input.
//
// Input: one byte naming the delimiter, then the text. The byte is the delimiter when it is one of
// , ; ( | and tab (single characters that are neither a blank nor a double quote); any other byte
// stands for the comma, the delimiter the server uses.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/check.h"
#include "protocol/command_language.h"

namespace {

const std::string kDelimiters = ",;(|\t";

std::string trimmedBlanks(const std::string& text) {
    const size_t first = text.find_first_not_of(' ');
    return first == std::string::npos ? ""
                                      : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

void checkSplit(const std::string& text, char delimiter, const std::vector<std::string>& pieces) {
    FUZZ_CHECK(pieces.size() == size_t(std::count(text.begin(), text.end(), delimiter)) + 1,
               "n delimiters give n + 1 pieces");
    std::string joined = pieces[0];
    for (size_t i = 1; i < pieces.size(); ++i)
        joined += delimiter + pieces[i];
    FUZZ_CHECK(joined == text, "the pieces joined by the delimiter are the text");
}

void checkParser(const std::string& line) {
    const protocol::ParsedLine parsed = protocol::parseCommandString(line);
    const size_t open = line.find('(');
    FUZZ_CHECK((open == std::string::npos) == (parsed.kind == protocol::LineKind::Ignored),
               "a line is ignored exactly when it has no (");
    if (parsed.kind != protocol::LineKind::Command) return;
    FUZZ_CHECK(parsed.name == line.substr(0, open), "the name is everything before the first (");
    for (const std::string& arg : parsed.args)
        FUZZ_CHECK(arg.find('(') == std::string::npos, "no argument holds a (");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const char named = static_cast<char>(data[0]);
    const char delimiter = kDelimiters.find(named) != std::string::npos ? named : ',';
    const std::string delimiters(1, delimiter);
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);

    const std::vector<std::string> pieces = protocol::splitString(text, delimiters);
    checkSplit(text, delimiter, pieces);
    const auto tokens = protocol::tokenizeQuotedString(text, delimiters);
    const bool lonePiece = std::any_of(pieces.begin(), pieces.end(), [](const std::string& p) {
        return trimmedBlanks(p) == "\"";
    });
    if (!tokens) FUZZ_CHECK(lonePiece, "the tokenizer fails only on a lone quote piece");
    if (tokens) {
        FUZZ_CHECK(tokens->size() <= pieces.size(), "never more tokens than pieces");
        size_t joins = 0;
        for (const std::string& token : *tokens)
            joins += size_t(std::count(token.begin(), token.end(), delimiter));
        FUZZ_CHECK(tokens->size() + joins <= pieces.size(),
                   "each delimiter in a token joined two pieces");
    }
    checkParser(text);
    return 0;
}
