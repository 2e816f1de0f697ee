// Raw image files: three int32 dimensions followed by the float samples, in machine byte order.
#pragma once

#include <atomic>
#include <iosfwd>
#include <string>

#include "image/ImageBuffer.h"

namespace quorblen {

/// Loads the raw file `filename` into `buffer`, sized through `buffer->resize` with the
/// file's width, height and channels (so the array is reused when the sample count is
/// unchanged; a count below 1 empties the buffer).
/// A file shorter than its header announces still loads. The samples past its end (a sample
/// it ends in the middle of included) keep their values when the array is reused and are 0
/// in a fresh array; a header that ends early counts its missing dimensions as 0.
/// Returns false, with a line on stderr and the buffer untouched, when the file cannot be
/// opened ("ImageBuffer::readRaw Couldn't open NAME") or its header's sample count does not
/// fit in a signed 32-bit int ("ImageBuffer::readRaw Couldn't read NAME"); true otherwise.
/// Preconditions: `filename` and `buffer` are not null.
bool readRaw(const char* filename, ImageBuffer* buffer);

/// Why the raw file `filename` cannot be loaded whole, checked before anything is allocated:
/// "NAME is not a whole raw image: its header asks for W x H x C samples, but the file holds
/// N bytes". Empty when it holds every sample its header announces, when the header announces
/// none, or when the file cannot be opened or sized (readRaw reports that).
/// Precondition: `filename` is not null.
std::string rawFileShortfall(const char* filename);

/// Saves `buffer` to the raw file `filename`, created or truncated. Returns false, with
/// "ImageBuffer::writeRaw Couldn't open NAME" on stderr, when the file cannot be opened;
/// true otherwise (later write errors are not detected).
/// Preconditions: `filename` and `buffer` are not null.
bool writeRaw(const char* filename, const ImageBuffer* buffer);

/// Saves `buffer` to the raw file `filename` all or nothing, reporting nothing: the bytes go to
/// a temporary file beside it (host::OutputFile), every write and the close checked, synced to
/// disk and renamed over `filename`. Stops early, leaving `filename` untouched, once
/// `interrupt` (when given) is set. Returns 0 when `filename` holds the image; otherwise the
/// errno of the first failure (ENOENT, EACCES, ENOSPC, EFBIG, ...; ECANCELED when
/// interrupted), with no file left behind.
/// Precondition: `filename` is not null.
int saveRaw(const char* filename, const ImageBuffer& buffer,
            const std::atomic<bool>* interrupt = nullptr);

/// The stream form of readRaw for an open binary stream: the same reading, without opening,
/// closing or reporting; a stream that ends early is a short file. An oversized header sets
/// the stream's failbit and leaves the buffer untouched. Returns `in`.
/// Precondition: `buffer` is not null.
std::istream& readRaw(std::istream& in, ImageBuffer* buffer);

/// The stream form of writeRaw for an open binary stream: the header, then every sample.
/// Returns `out`. Precondition: `buffer` is not null.
std::ostream& writeRaw(std::ostream& out, const ImageBuffer* buffer);

}  // namespace quorblen
