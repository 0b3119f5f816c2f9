// Fuzzes matchMask against a reference matcher that tries every way a "*" can split the name.
//
// Input: name, a zero byte, mask (a missing zero byte makes the whole input the name and "*"
// the mask; anything after a second zero byte is ignored, as the C strings would end there).
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fileops/fileops.h"
#include "fuzz/check.h"

namespace {

// Longer texts add nothing the matcher has not shown and make the table quadratic.
constexpr size_t kMaxLength = 1024;

// Whether name[n..] matches mask[m..], for every n and m from the ends backwards: a star either
// matches nothing more or swallows one more character of the name.
bool referenceMatch(const std::string& name, const std::string& mask) {
    std::vector<std::vector<bool>> match(name.size() + 2, std::vector<bool>(mask.size() + 1));
    match[name.size()][mask.size()] = true;
    for (size_t n = name.size() + 1; n-- > 0;) {
        for (size_t m = mask.size(); m-- > 0;) {
            const bool more = n < name.size();
            const bool one = more && (mask[m] == '?' ? name[n] != '.' : name[n] == mask[m]);
            match[n][m] = mask[m] == '*' ? match[n][m + 1] || (more && match[n + 1][m])
                                         : one && match[n + 1][m + 1];
        }
    }
    return match[0][0];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const std::string name = bytes.substr(0, bytes.find('\0'));
    std::string mask = name.size() < size ? bytes.substr(name.size() + 1) : "*";
    mask = mask.substr(0, mask.find('\0'));
    if (name.size() > kMaxLength || mask.size() > kMaxLength) return 0;
    FUZZ_CHECK(matchMask(name.c_str(), mask.c_str()) == referenceMatch(name, mask),
               "matchMask agrees with the reference matcher");
    return 0;
}
