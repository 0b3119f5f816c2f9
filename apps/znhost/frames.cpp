#include "apps/znhost/frames.h"

#include <algorithm>
#include <cmath>

#include "fileops/fileops.h"

namespace znhost {

namespace {

constexpr double kSpotPeak = 200.0;
constexpr unsigned kNoiseLevels = 10;

// A small integer hash; good enough to make noise that differs from pixel to pixel.
unsigned mix(unsigned value) {
    value ^= value >> 16;
    value *= 0x7feb352dU;
    value ^= value >> 15;
    value *= 0x846ca68bU;
    value ^= value >> 16;
    return value;
}

unsigned noise(int frameIndex, int pixel) {
    return mix(static_cast<unsigned>(frameIndex) * 0x9e3779b9U + static_cast<unsigned>(pixel)) %
           kNoiseLevels;
}

}  // namespace

std::vector<unsigned short> simulateFrame(int width, int height, int frameIndex) {
    std::vector<unsigned short> frame(static_cast<size_t>(width) * static_cast<size_t>(height));
    double centreX = (width - 1) / 2.0;
    double centreY = (height - 1) / 2.0;
    double sigma = std::max(1.0, std::min(width, height) / 6.0);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            double distance2 = (x - centreX) * (x - centreX) + (y - centreY) * (y - centreY);
            double spot = kSpotPeak * std::exp(-distance2 / (2.0 * sigma * sigma));
            int pixel = y * width + x;
            frame[static_cast<size_t>(pixel)] =
                static_cast<unsigned short>(std::lround(spot) + noise(frameIndex, pixel));
        }
    }
    return frame;
}

int writeFrames(const std::string& path, int width, int height, int frameCount) {
    unsigned long values = static_cast<unsigned long>(width) * static_cast<unsigned long>(height);
    if (frameCount == 0) return writeAsciiMatrix(path.c_str(), TYPE_USHORT, nullptr, 0, 1, false);
    for (int i = 0; i < frameCount; ++i) {
        std::vector<unsigned short> frame = simulateFrame(width, height, i);
        int result = writeAsciiMatrix(path.c_str(), TYPE_USHORT, frame.data(), values,
                                      static_cast<unsigned long>(width), i > 0);
        if (result != fileops::kOk) return result;
    }
    return fileops::kOk;
}

}  // namespace znhost
