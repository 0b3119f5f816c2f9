// Fuzzes the command language: splitString, RemoteCtrl::tokenizeQuotedString and
// parseCommandString on arbitrary text.
//
// Input: one byte naming the delimiter, then the text. The byte is the delimiter when it is one of
// , ; ( | and tab (single characters that are neither a blank nor a double quote); any other byte
// stands for the comma, the delimiter the system uses.
//
// The tokenizer is checked through the pieces it must have been built from: every piece of the
// split belongs to exactly one token, in order, except an unterminated quoted tail, which is
// dropped. A token that spans k + 1 pieces holds exactly the k delimiters that joined them, and
// only a quoted token may span more than one piece.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/check.h"
#include "plugin/remotectrl.h"

namespace {

using PluginRemoteCtrl::ParsedCommand;
using PluginRemoteCtrl::RemoteCtrl;
using PluginRemoteCtrl::splitString;
using Tokens = std::vector<std::string>;

const std::string kDelimiters = ",;(|\t";

std::string trimStart(const std::string& text) {
    size_t begin = text.find_first_not_of(' ');
    return begin == std::string::npos ? std::string() : text.substr(begin);
}

std::string trimEnd(const std::string& text) {
    size_t end = text.find_last_not_of(' ');
    return end == std::string::npos ? std::string() : text.substr(0, end + 1);
}

bool opensQuote(const std::string& piece) {
    std::string start = trimStart(piece);
    return !start.empty() && start[0] == '"';
}

bool closesQuote(const std::string& piece) {
    std::string end = trimEnd(piece);
    return !end.empty() && end.back() == '"';
}

size_t countOf(const std::string& text, char c) {
    size_t count = 0;
    for (char each : text)
        count += each == c;
    return count;
}

void checkSplit(const std::string& text, char delimiter, const Tokens& pieces) {
    FUZZ_CHECK(pieces.size() == countOf(text, delimiter) + 1, "n delimiters give n + 1 pieces");
    std::string joined;
    for (size_t i = 0; i < pieces.size(); ++i) {
        FUZZ_CHECK(pieces[i].find(delimiter) == std::string::npos, "no piece holds a delimiter");
        joined += (i == 0 ? "" : std::string(1, delimiter)) + pieces[i];
    }
    FUZZ_CHECK(joined == text, "the pieces joined by the delimiter are the text");
}

// The token that pieces[first..last] must have produced.
std::string expectedToken(const Tokens& pieces, size_t first, size_t last, char delimiter) {
    const std::string opening = trimStart(pieces[first]);
    if (!opensQuote(pieces[first])) return trimEnd(opening);
    if (first == last) return trimEnd(opening).substr(1, trimEnd(opening).size() - 2);
    // Blanks after the opening quote and inside middle pieces stay; the closing piece loses its
    // leading blanks.
    std::string token = opening.substr(1);
    for (size_t i = first + 1; i < last; ++i)
        token += delimiter + pieces[i];
    const std::string closing = trimEnd(trimStart(pieces[last]));
    return token + delimiter + closing.substr(0, closing.size() - 1);
}

void checkTokens(const Tokens& pieces, const Tokens& tokens, char delimiter) {
    size_t next = 0;
    for (const std::string& token : tokens) {
        const size_t joins = countOf(token, delimiter);
        FUZZ_CHECK(next + joins < pieces.size(), "tokens come from pieces of the text, in order");
        const size_t last = next + joins;
        if (joins > 0) {
            FUZZ_CHECK(opensQuote(pieces[next]), "only a quoted token holds a delimiter");
            for (size_t i = next + 1; i < last; ++i)
                FUZZ_CHECK(!closesQuote(pieces[i]), "a quoted token ends at its first closing");
            FUZZ_CHECK(closesQuote(pieces[last]), "a quoted token ends with a closing quote");
        } else if (opensQuote(pieces[next])) {
            FUZZ_CHECK(closesQuote(pieces[next]) && trimEnd(trimStart(pieces[next])).size() >= 2,
                       "a one-piece quoted token opens and closes in its piece");
        }
        FUZZ_CHECK(token == expectedToken(pieces, next, last, delimiter),
                   "the token is its pieces with the blanks and quotes the rules remove");
        next = last + 1;
    }
    // What is left can only be an unterminated quoted token.
    if (next < pieces.size()) {
        FUZZ_CHECK(opensQuote(pieces[next]), "only a quoted tail is dropped");
        // A first piece that closed would be a whole token, or a lone quote and so a failure.
        FUZZ_CHECK(!closesQuote(pieces[next]), "a dropped tail does not close in its first piece");
        for (size_t i = next + 1; i < pieces.size(); ++i)
            FUZZ_CHECK(!closesQuote(pieces[i]), "a dropped tail never closes");
    }
}

bool hasLoneQuotePiece(const Tokens& pieces) {
    for (const std::string& piece : pieces)
        if (trimEnd(trimStart(piece)) == "\"") return true;
    return false;
}

void checkParser(const std::string& line) {
    ParsedCommand parsed = PluginRemoteCtrl::parseCommandString(line);
    const size_t open = line.find('(');
    if (open == std::string::npos) {
        FUZZ_CHECK(parsed.kind == ParsedCommand::Kind::Ignored, "a line without ( is ignored");
        return;
    }
    FUZZ_CHECK(parsed.kind != ParsedCommand::Kind::Ignored, "a line with ( is not ignored");
    if (parsed.kind == ParsedCommand::Kind::SyntaxError) return;
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

    const Tokens pieces = splitString(text, delimiters);
    checkSplit(text, delimiter, pieces);

    const std::optional<Tokens> tokens = RemoteCtrl::tokenizeQuotedString(text, delimiters);
    if (tokens) {
        checkTokens(pieces, *tokens, delimiter);
    } else {
        FUZZ_CHECK(hasLoneQuotePiece(pieces), "the tokenizer fails only on a lone quote piece");
    }

    checkParser(text);
    return 0;
}
