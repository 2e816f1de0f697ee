// OpenImageIO's writers writing into an OutputFile.
#include "host/OutputFileProxy.h"

namespace host {

OutputFileProxy::OutputFileProxy(OutputFile& file)
    : IOProxy(file.temporary(), IOProxy::Write), m_file(file) {}

size_t OutputFileProxy::read(void* data, size_t size) {
    const size_t done = pread(data, size, m_pos);
    m_pos += int64_t(done);
    return done;
}

size_t OutputFileProxy::write(const void* data, size_t size) {
    pwrite(data, size, m_pos);
    m_pos += int64_t(size);
    return size;
}

size_t OutputFileProxy::pread(void* data, size_t size, int64_t offset) {
    const std::scoped_lock lock(m_mutex);
    return m_file.read(offset, data, size);
}

size_t OutputFileProxy::pwrite(const void* data, size_t size, int64_t offset) {
    const std::scoped_lock lock(m_mutex);
    m_file.write(offset, data, size);
    return size;
}

size_t OutputFileProxy::size() const {
    const std::scoped_lock lock(m_mutex);
    return size_t(m_file.size());
}

}  // namespace host
