#include "apps/znhost/trace.h"

#include <charconv>
#include <cstdio>

#include "apps/znhost/lineout.h"

namespace znhost {

namespace {

bool needsHexEscape(unsigned char byte) {
    return byte < 0x20 || byte >= 0x7f;
}

void appendHexEscape(std::string& out, unsigned char byte) {
    char escape[5];
    std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned>(byte));
    out.append(escape);
}

template <typename T>
std::string shortestText(T value) {
    char buffer[64];
    auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

}  // namespace

std::string traceQuoted(const char* text) {
    if (text == nullptr) return "null";
    std::string out = "\"";
    for (const char* p = text; *p != '\0'; ++p) {
        unsigned char byte = static_cast<unsigned char>(*p);
        if (byte == '"' || byte == '\\') {
            out.push_back('\\');
            out.push_back(*p);
        } else if (needsHexEscape(byte)) {
            appendHexEscape(out, byte);
        } else {
            out.push_back(*p);
        }
    }
    out.push_back('"');
    return out;
}

std::string traceNumber(double value) {
    return shortestText(value);
}

std::string traceNumber(int value) {
    return shortestText(value);
}

std::string formatTraceCall(std::string_view target, std::string_view operation,
                            std::initializer_list<std::string_view> args) {
    std::string line;
    line.append(target).append(".").append(operation).append("(");
    const char* separator = "";
    for (std::string_view arg : args) {
        line.append(separator).append(arg);
        separator = ", ";
    }
    line.append(")");
    return line;
}

void Tracer::write(std::string_view target, std::string_view operation,
                   std::initializer_list<std::string_view> args) const {
    writeLine(mFd, "trace: " + formatTraceCall(target, operation, args));
}

}  // namespace znhost
