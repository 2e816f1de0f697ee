// Keeping the lines libraries print on their own out of the program's standard error.
#pragma once

namespace quorblen::app {

/// Points C's standard error stream at a filter that drops what the libraries print there on
/// their own: libpng's errors and warnings ("libpng error: ..."), which OpenImageIO's PNG
/// reader lets through before reporting the same failure; OpenImageIO's debug lines ("OIIO
/// DEBUG: ...", on by default in some builds of the library, or by OPENIMAGEIO_DEBUG);
/// libjpeg's messages, which its default error manager prints ("Output file write error ---
/// out of disk space?"). The program reports each failure itself in one line, through
/// std::cerr, which is not touched; C's stream is the libraries' alone. Only the lines of a
/// defect that ends the program pass: a failed assertion, an uncaught exception.
/// Call once, first thing in main.
void filterLibraryLines();

}  // namespace quorblen::app
