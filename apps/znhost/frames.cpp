#include "apps/znhost/frames.h"

#include <algorithm>
#include <cmath>

namespace znhost {

namespace {

constexpr double kSpotPeak = 200.0;
constexpr unsigned kNoiseLevels = 10;
// Up to three digits and a separator.
constexpr size_t kTypicalValueChars = 4;

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

std::string frameText(int width, int height, int frameIndex) {
    std::vector<unsigned short> frame = simulateFrame(width, height, frameIndex);
    std::string text;
    text.reserve(frame.size() * kTypicalValueChars);
    for (size_t i = 0; i < frame.size(); ++i) {
        text.append(std::to_string(frame[i]));
        text.push_back((i + 1) % static_cast<size_t>(width) == 0 ? '\n' : ' ');
    }
    return text;
}

}  // namespace znhost
