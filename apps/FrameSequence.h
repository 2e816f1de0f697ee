// Numbered frame sequences: frame ranges and file names with a frame token.
#pragma once

#include <string>
#include <vector>

namespace quorblen::app {

/// The frames of a --frames RANGE: items joined by commas, each a frame N, a span A-B, or
/// every S-th frame of a span, A-BxS. Frames are whole numbers from 0 to 999999999; the
/// result is in ascending order, each frame once. Throws UsageError naming --frames for a
/// malformed range, a span that runs backwards, or more than a million frames.
std::vector<int> parseFrameRange(const std::string& range);

/// `name` with every frame token replaced by `frame` (at least 0), padded with zeros to the
/// token's width: a run of '#' gives four digits per '#', a run of '@' one digit per '@',
/// "%0Nd" N digits and "%d" no padding. A wider number keeps all its digits.
std::string frameFileName(const std::string& name, int frame);

/// Whether `name` holds a frame token.
bool hasFrameToken(const std::string& name);

}  // namespace quorblen::app
