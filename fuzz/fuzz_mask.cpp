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

// Plain recursion over (name position, mask position), memoized, so it stays polynomial.
class ReferenceMatcher {
public:
    ReferenceMatcher(const std::string& name, const std::string& mask)
        : mName(name), mMask(mask), mMemo((name.size() + 1) * (mask.size() + 1), kUnknown) {}

    bool matches() { return match(0, 0); }

private:
    enum : signed char { kUnknown = -1, kNo = 0, kYes = 1 };

    bool match(size_t n, size_t m) {
        signed char& memo = mMemo[n * (mMask.size() + 1) + m];
        if (memo == kUnknown) memo = compute(n, m) ? kYes : kNo;
        return memo == kYes;
    }

    bool compute(size_t n, size_t m) {
        if (m == mMask.size()) return n == mName.size();
        const char wanted = mMask[m];
        // A star either ends here (matches nothing more) or swallows one more name character.
        if (wanted == '*') return match(n, m + 1) || (n < mName.size() && match(n + 1, m));
        if (n == mName.size()) return false;
        const char got = mName[n];
        const bool one = wanted == '?' ? got != '.' : got == wanted;
        return one && match(n + 1, m + 1);
    }

    const std::string& mName;
    const std::string& mMask;
    std::vector<signed char> mMemo;
};

std::string cString(const uint8_t* data, size_t size) {
    const char* text = reinterpret_cast<const char*>(data);
    size_t length = 0;
    while (length < size && text[length] != '\0')
        ++length;
    return std::string(text, length);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string name = cString(data, size);
    std::string mask = "*";
    if (name.size() < size) mask = cString(data + name.size() + 1, size - name.size() - 1);
    if (name.size() > kMaxLength || mask.size() > kMaxLength) return 0;

    ReferenceMatcher reference(name, mask);
    FUZZ_CHECK(matchMask(name.c_str(), mask.c_str()) == reference.matches(),
               "matchMask agrees with the reference matcher");
    return 0;
}
