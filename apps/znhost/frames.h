// Simulated detector frames and their files.
//
// A frame is width x height unsigned 16-bit counts, row after row: a bright spot in the middle of
// the frame over a little noise, repeatable for a given frame number so that files can be compared.
// A file holds its frames one after another as text, `width` values per line.
#pragma once

#include <string>
#include <vector>

namespace znhost {

std::vector<unsigned short> simulateFrame(int width, int height, int frameIndex);

// A frame as text: `width` decimal values per line, separated by single spaces.
std::string frameText(int width, int height, int frameIndex);

}  // namespace znhost
