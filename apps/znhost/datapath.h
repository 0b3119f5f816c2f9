// Where simulated devices may write: only below the data folder.
//
// Remote clients choose acquisition file names, so a name must be relative and free of ".."
// components; "." components, repeated slashes and names that merely contain dots (such as
// "a..b") are accepted. The empty name is not a path and is refused here (devices treat it as
// "write no file" before asking).
#pragma once

#include <string>

namespace znhost {

bool isSafeDataPath(const std::string& file);

}  // namespace znhost
