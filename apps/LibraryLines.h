// Keeping the lines libraries print on their own out of the program's standard error.
#pragma once

namespace quorblen::app {

/// Points C's standard error stream at a filter that drops the lines libpng prints itself
/// ("libpng error: ...", "libpng warning: ..."): OpenImageIO's PNG reader lets libpng print
/// its error before reporting the same failure in its message, which the program shows, and
/// a failure must come out as one line. Every other line goes to standard error unchanged;
/// std::cerr, which the program writes to, is not touched. Call once, first thing in main.
void filterLibraryLines();

}  // namespace quorblen::app
