// String helpers shared by the settings store and the command handlers.
//
// str::trim(text, characters)
//   `text` without the bytes of `characters` at its start and its end; bytes inside stay. Every
//   reader of settings trims with it, each with its own set (the INI line rules strip "\r \n").
//
// str::format(fmt, ...)
//   printf-style formatting into a std::string of whatever length the text needs. A text of up
//   to 511 characters is formatted in one pass; a longer one costs exactly one more pass, sized
//   to fit. The result is cut at the first zero byte the conversion produced (so "%c" with 0
//   ends the text there). Nothing is ever reported: a formatting output error (negative count
//   from the C library) doubles the buffer and retries, and once the buffer has reached
//   FORMAT_RETRY_LIMIT bytes the text that fits in it up to its first zero byte is returned.
//   No printf format attribute: the template is a std::string by value, which the attribute
//   cannot describe.
//
// str::toNumDef<T>(text, def), instantiated for int and double only
//   Reads one number from the start of `text` exactly as formatted extraction from a default
//   "C"-locale string stream does, and returns `def` where that extraction would fail:
//   leading white space (space, \t, \n, \v, \f, \r) is skipped, an optional sign is taken, and
//   the number runs as far as its characters go; what follows is ignored.
//   - int: decimal digits only ("0x1F" gives 0, "4.9" gives 4); no digit, or a value outside
//     the int range, gives `def`.
//   - double: digits with at most one '.', then an optional exponent 'e'/'E' with optional sign;
//     an exponent marker must be followed by digits ("1e" and "1e+" give `def`, not 1); no
//     "inf", "nan" or hexadecimal forms; overflow to infinity gives `def`, underflow gives the
//     rounded (possibly zero or subnormal) value.
//   The conversion never allocates for texts whose number fits in 63 characters and does not
//   depend on the process's current C or C++ locale.
#pragma once

#include <cstddef>
#include <string>

namespace str {

// Size at which str::format stops growing its buffer after formatting output errors.
constexpr std::size_t FORMAT_RETRY_LIMIT = 1024 * 1024;

std::string format(std::string fmt, ...);

std::string trim(const std::string& text, const char* characters);

template <typename T>
T toNumDef(const std::string& text, T def);

extern template int toNumDef<int>(const std::string& text, int def);
extern template double toNumDef<double>(const std::string& text, double def);

}  // namespace str
