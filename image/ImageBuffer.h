// ImageBuffer: the module's interleaved float image, which is also a host image operator.
#pragma once

#include "host/Box.h"
#include "host/Iop.h"
#include "host/LUT.h"

namespace host {

/// An owned raster of width x height pixels with `channels` interleaved samples each:
/// sample c of pixel (x, y) is data[y * stride + x * channels + c]. As a host operator it
/// serves sample c as host channel c + 1 (red, green, blue, alpha, ...).
///
/// Invariants: `data` holds exactly width * height * channels samples, and is null when
/// that count is 0. Fresh arrays are not cleared; those spanning 2 MiB pages ask for
/// transparent huge pages (adviseHugePages). `float` is the only instantiation.
template <class T>
class ImageBuffer : public NoIop {
public:
    int width = 0;
    int height = 0;
    int channels = 0;
    Box bbox;  // (0, 0, width, height) after every sizing; the host side never reads it
    int stride = 0;
    float jpegQuality = 1.0f;  // handed to the writer's "_jpeg_quality" for JPEG files
    T* data = nullptr;
    Format format;
    LUT* lut = nullptr;  // copied along, never applied to samples

    /// An empty buffer, 0 x 0 x 0.
    ImageBuffer();
    /// A buffer of the given size with uncleared samples; no array when the count is not
    /// positive (the three sizes are stored all the same). Does not validate.
    /// Throws std::bad_alloc when the sample count or the stride does not fit in a signed
    /// 32-bit int.
    ImageBuffer(int width, int height, int channels);
    /// A deep copy, as default construction followed by assignment.
    ImageBuffer(const ImageBuffer& other);
    /// Takes over the array of `other`, as default construction followed by move assignment.
    ImageBuffer(ImageBuffer&& other);
    ~ImageBuffer() override;

    /// Deep copy: size, bbox, samples and lut; jpegQuality stays.
    ImageBuffer& operator=(const ImageBuffer& other);
    /// Takes over size, bbox, array and lut of `other` without copying a sample, and leaves
    /// `other` 0 x 0 x 0 with no array; jpegQuality stays on both. A positive count
    /// validates the buffer as an operator, as resize does.
    ImageBuffer& operator=(ImageBuffer&& other);

    /// Sets the size. The array is kept, contents included, when the sample count does not
    /// change; otherwise it is released and, for a positive count, a new uncleared one is
    /// allocated. A count below 1 (or a negative dimension) makes the buffer 0 x 0 x 0.
    /// A positive count validates the buffer as an operator.
    /// Throws std::bad_alloc, leaving the buffer 0 x 0 x 0, when the count or the stride does
    /// not fit in a signed 32-bit int or the allocation fails.
    void resize(int width, int height, int channels);

    /// Writes the buffer to `filename` through the host's writer, the file type chosen from
    /// the name. `channels` -1 means the buffer's own count; 3 or fewer writes red, green
    /// and blue, more writes host channels 1 to 7. `flag` is accepted for hosts whose writer
    /// has a setting for it; this host's writer has none.
    /// Returns true; throws the std::string of checkOpError when the writer fails.
    bool writeImage(const char* filename, int channels = -1, bool flag = false);

    const char* Class() const override { return "ImageBufferIop"; }
    const char* node_help() const override { return "No HELP"; }

    /// Copies row y, columns x .. r-1, of the requested channels; zeros for channels the
    /// buffer does not have and for an empty buffer. The caller keeps to the output box.
    void engine(int y, int x, int r, const ChannelSet& channels, Row& row) override;

protected:
    void _validate(bool for_real) override;
    void _request(int x, int y, int r, int t, const ChannelSet& channels, int count) override;
};

extern template class ImageBuffer<float>;

}  // namespace host

namespace quorblen {
using ImageBuffer = host::ImageBuffer<float>;
}
