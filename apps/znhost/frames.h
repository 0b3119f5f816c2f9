// Simulated detector frames and their files.
//
// A frame is width x height unsigned 16-bit counts, row after row: a bright spot in the middle of
// the frame over a little noise, repeatable for a given frame number so that files can be compared.
// A file holds its frames one after another as an ASCII matrix, `width` values per line.
#pragma once

#include <string>
#include <vector>

namespace znhost {

std::vector<unsigned short> simulateFrame(int width, int height, int frameIndex);

// Writes frames 0 .. frameCount-1 to `path`, replacing the file; zero frames leave an empty file.
// Returns fileops::kOk, or the first failing result of the matrix writer (fileops::kOpenFailed,
// fileops::kWriteFailed).
int writeFrames(const std::string& path, int width, int height, int frameCount);

}  // namespace znhost
