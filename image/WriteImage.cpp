// Writing an ImageBuffer as an image file through the host's writer.
#include <cstring>

#include "host/Write.h"
#include "image/ImageBuffer.h"
#include "image/OpError.h"

namespace host {

// `flag` has no setting in this host's writer; the argument stays for hosts that have one.
template <class T>
bool ImageBuffer<T>::writeImage(const char* filename, int channels, bool /*flag*/) {
    if (channels == -1) {
        channels = this->channels;
    }
    // The writer must see the buffer's current size and channels.
    invalidate();
    // A local writer is destroyed on every way out, the thrown error included.
    Write writer(nullptr);
    writer.file(filename);
    writer.set_file_type_from_filename();
    writer.set_input(0, this, 0, 0);
    const char* type = writer.file_type();
    if (type != nullptr && (std::strcmp(type, "jpg") == 0 || std::strcmp(type, "jpeg") == 0)) {
        writer.set_field("_jpeg_quality", &jpegQuality, sizeof jpegQuality);
    }
    writer.channels(channels <= 3 ? ChannelSet(0x7u) : ChannelSet(0x7Fu));
    writer.validate(true);
    writer.execute();
    // The buffer served the writer's rows and shares its tree, errors included.
    quorblen::checkOpError(this);
    return true;
}

template bool ImageBuffer<float>::writeImage(const char*, int, bool);

}  // namespace host
