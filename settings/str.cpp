#include "settings/str.h"

#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <sstream>

#include <locale.h>
#include <stdlib.h>

namespace str {

std::string format(std::string fmt, ...) {
    std::size_t size = 512;
    std::string result(size, '\0');
    for (;;) {
        // A va_list is consumed by one formatting call, so every attempt starts it afresh.
        va_list args;
        va_start(args, fmt);
        const int n = std::vsnprintf(&result[0], size, fmt.c_str(), args);
        va_end(args);
        if (n < 0) {
            if (size >= FORMAT_RETRY_LIMIT) break;
            size *= 2;
        } else if (static_cast<std::size_t>(n) >= size) {
            size = static_cast<std::size_t>(n) + 1;
        } else {
            break;
        }
        result.resize(size);
    }
    // Cut at the first zero byte rather than at n: a "%c" of 0 ends the text there.
    result.resize(std::strlen(result.c_str()));
    return result;
}

std::string trim(const std::string& text, const char* characters) {
    const std::size_t first = text.find_first_not_of(characters);
    if (first == std::string::npos) return std::string();
    return text.substr(first, text.find_last_not_of(characters) - first + 1);
}

namespace {

// White space as the "C" locale's classification sees it; the stream's sentry skips exactly
// these, whatever locale the process has switched to.
bool isCSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isSign(char c) {
    return c == '+' || c == '-';
}

const char* skipSpace(const char* p, const char* end) {
    while (p != end && isCSpace(*p))
        ++p;
    return p;
}

bool extractInt(const std::string& text, int& out) {
    const char* end = text.data() + text.size();
    const char* p = skipSpace(text.data(), end);
    const bool negative = p != end && *p == '-';
    if (p != end && isSign(*p)) ++p;

    // The stream reads a long and then range-checks it against int; on this platform any text
    // outside int's range fails one of the two checks, so one bound on the magnitude suffices.
    const std::uint64_t limit =
        negative ? std::uint64_t{1} << 31 : std::uint64_t{std::numeric_limits<int>::max()};
    std::uint64_t magnitude = 0;
    const char* digits = p;
    for (; p != end && isDigit(*p); ++p) {
        magnitude = magnitude * 10 + static_cast<std::uint64_t>(*p - '0');
        if (magnitude > limit) return false;
    }
    if (p == digits) return false;
    const std::int64_t value =
        negative ? -static_cast<std::int64_t>(magnitude) : static_cast<std::int64_t>(magnitude);
    out = static_cast<int>(value);
    return true;
}

// End of the characters the stream's floating-point scanner accepts: sign, digits with one
// '.', and an exponent marker (only once a digit was seen) with its optional sign and digits.
// The scanner keeps an exponent marker even when no digit follows it, which later makes the
// conversion fail: "1e" is no number for the stream, not 1.
const char* scanFloat(const char* p, const char* end) {
    if (p != end && isSign(*p)) ++p;
    bool sawDigit = false;
    bool sawPoint = false;
    for (; p != end; ++p) {
        if (isDigit(*p)) {
            sawDigit = true;
        } else if (*p == '.' && !sawPoint) {
            sawPoint = true;
        } else if ((*p == 'e' || *p == 'E') && sawDigit) {
            ++p;
            if (p != end && isSign(*p)) ++p;
            while (p != end && isDigit(*p))
                ++p;
            return p;
        } else {
            break;
        }
    }
    return p;
}

locale_t classicLocale() {
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
    return locale;
}

bool streamExtract(const std::string& text, double& out) {
    std::istringstream in(text);
    in.imbue(std::locale::classic());
    in >> out;
    return !in.fail();
}

// The stream converts the scanned characters with the C library in the "C" locale and fails
// unless every one of them was used and the result is finite; underflow is not a failure.
bool convertScanned(const char* token, double& out) {
    char* used = nullptr;
    const int savedErrno = errno;
    const double value = strtod_l(token, &used, classicLocale());
    errno = savedErrno;
    if (used == token || *used != '\0' || std::isinf(value)) return false;
    out = value;
    return true;
}

bool extractDouble(const std::string& text, double& out) {
    if (classicLocale() == static_cast<locale_t>(0)) return streamExtract(text, out);
    const char* end = text.data() + text.size();
    const char* start = skipSpace(text.data(), end);
    const std::size_t length = static_cast<std::size_t>(scanFloat(start, end) - start);
    if (length == 0) return false;

    char shortToken[64];
    if (length < sizeof shortToken) {
        std::memcpy(shortToken, start, length);
        shortToken[length] = '\0';
        return convertScanned(shortToken, out);
    }
    const std::string longToken(start, length);
    return convertScanned(longToken.c_str(), out);
}

bool extract(const std::string& text, int& out) {
    return extractInt(text, out);
}

bool extract(const std::string& text, double& out) {
    return extractDouble(text, out);
}

}  // namespace

template <typename T>
T toNumDef(const std::string& text, T def) {
    T value{};
    return extract(text, value) ? value : def;
}

template int toNumDef<int>(const std::string& text, int def);
template double toNumDef<double>(const std::string& text, double def);

}  // namespace str
