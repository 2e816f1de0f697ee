// Uses the installed headers, libraries and module: copies an ImageBuffer, then loads the
// module given as the first argument and builds its node by name.
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>

#include "host/Module.h"
#include "image/ImageBuffer.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: consumer MODULE\n");
        return 2;
    }
    quorblen::ImageBuffer image(3, 2, 4);
    for (int i = 0; i < 24; ++i) {
        image.data[i] = float(i);
    }
    const quorblen::ImageBuffer copy(image);
    if (copy.stride != 12 || copy.data == image.data || copy.data[23] != 23.0f) {
        std::fprintf(stderr, "consumer: the copied ImageBuffer is wrong\n");
        return 1;
    }
    try {
        host::loadModule(argv[1]);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "consumer: %s\n", e.what());
        return 1;
    }
    const std::unique_ptr<host::Op> node(host::Op::create("Quorblen", nullptr));
    if (node == nullptr || std::strcmp(node->Class(), "Quorblen") != 0) {
        std::fprintf(stderr, "consumer: the module did not register Quorblen\n");
        return 1;
    }
    return 0;
}
