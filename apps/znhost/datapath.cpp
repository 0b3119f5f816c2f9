#include "apps/znhost/datapath.h"

namespace znhost {

bool isSafeDataPath(const std::string& file) {
    if (file.empty() || file[0] == '/') return false;
    size_t start = 0;
    while (start <= file.size()) {
        size_t end = file.find('/', start);
        if (end == std::string::npos) end = file.size();
        if (file.compare(start, end - start, "..") == 0) return false;
        start = end + 1;
    }
    return true;
}

}  // namespace znhost
