// ImageBuffer sizing, copying and its host operator side.
#include "image/ImageBuffer.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <new>
#include <utility>

#include "image/RowCopy.h"
#include "image/SampleMemory.h"

namespace host {
namespace {

/// A new uncleared array of n > 0 samples, on huge pages where it spans them.
template <class T>
T* newSamples(std::int64_t n) {
    T* samples = new T[static_cast<std::size_t>(n)];
    quorblen::adviseHugePages(samples, static_cast<std::size_t>(n) * sizeof(T));
    return samples;
}

/// The sample count of a width x height x channels buffer: 0 when a dimension is negative,
/// -1 when the count or the row stride (width x channels) does not fit in a signed 32-bit int.
std::int64_t sampleCount(int w, int h, int c) {
    constexpr std::int64_t largest = std::numeric_limits<std::int32_t>::max();
    const std::int64_t stride = std::int64_t(w) * std::int64_t(c);
    if (stride > largest || stride < -largest) {
        return -1;
    }
    if (w < 0 || h < 0 || c < 0) {
        return 0;
    }
    const std::int64_t n = stride * std::int64_t(h);
    return n > largest ? -1 : n;
}

}  // namespace

template <class T>
ImageBuffer<T>::ImageBuffer() : NoIop(nullptr), lut(LUT::getLut(0)) {}

template <class T>
ImageBuffer<T>::ImageBuffer(int w, int h, int c)
    : NoIop(nullptr), width(w), height(h), channels(c), bbox{0, 0, w, h}, lut(LUT::getLut(0)) {
    const std::int64_t n = sampleCount(w, h, c);
    if (n < 0) {
        throw std::bad_alloc();
    }
    stride = w * c;  // fits: checked with the count
    if (n > 0) {
        data = newSamples<T>(n);
    }
}

template <class T>
ImageBuffer<T>::ImageBuffer(const ImageBuffer& other) : ImageBuffer() {
    *this = other;
}

template <class T>
ImageBuffer<T>::ImageBuffer(ImageBuffer&& other) : ImageBuffer() {
    *this = std::move(other);
}

template <class T>
ImageBuffer<T>::~ImageBuffer() {
    delete[] data;
}

template <class T>
void ImageBuffer<T>::resize(int w, int h, int c) {
    std::int64_t n = sampleCount(w, h, c);
    const std::int64_t current = sampleCount(width, height, channels);
    if (n != current || n < 0) {
        delete[] data;
        data = nullptr;
        if (n < 1) {
            w = h = c = 0;
        }
        if (n > 0) {
            try {
                data = newSamples<T>(n);
            } catch (const std::bad_alloc&) {
                n = -1;
            }
        }
        if (n < 0) {
            // The old array is gone: report 0 x 0 x 0 so the invariants hold.
            width = height = channels = stride = 0;
            bbox = Box{};
            throw std::bad_alloc();
        }
    } else if (n == 0 && (w < 0 || h < 0 || c < 0)) {
        w = h = c = 0;
    }
    width = w;
    height = h;
    channels = c;
    bbox = Box{0, 0, w, h};
    stride = w * c;
    if (n > 0) {
        // Force a fresh validation so format, box and channels describe the new size.
        invalidate();
        validate(true);
    }
}

template <class T>
ImageBuffer<T>& ImageBuffer<T>::operator=(const ImageBuffer& other) {
    if (&other == this) {
        return *this;
    }
    resize(other.width, other.height, other.channels);
    bbox = other.bbox;
    const std::int64_t n = sampleCount(width, height, channels);
    if (n > 0) {
        std::copy_n(other.data, n, data);
    }
    lut = other.lut;
    return *this;
}

template <class T>
ImageBuffer<T>& ImageBuffer<T>::operator=(ImageBuffer&& other) {
    if (&other == this) {
        return *this;
    }
    delete[] data;
    data = std::exchange(other.data, nullptr);
    width = std::exchange(other.width, 0);
    height = std::exchange(other.height, 0);
    channels = std::exchange(other.channels, 0);
    stride = std::exchange(other.stride, 0);
    bbox = std::exchange(other.bbox, Box{});
    lut = other.lut;
    if (data != nullptr) {
        invalidate();
        validate(true);
    }
    return *this;
}

template <class T>
void ImageBuffer<T>::_validate(bool /*for_real*/) {
    format = Format(width, height, 1.0);
    format.name = "";
    info_().format(format);
    info_().set(Box{0, 0, width, height});
    info_().channels(data != nullptr ? quorblen::firstChannels(channels) : Mask_None);
    set_out_channels(Mask_All);
}

template <class T>
void ImageBuffer<T>::_request(int, int, int, int, const ChannelSet&, int) {}

template <class T>
void ImageBuffer<T>::engine(int y, int x, int r, const ChannelSet& requested, Row& row) {
    quorblen::serveRow(*this, quorblen::firstChannels(channels), Box{0, 0, width, height}, y, x, r,
                       requested, row);
}

template class ImageBuffer<float>;

}  // namespace host
