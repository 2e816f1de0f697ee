// Output files that appear whole under their name or not at all.
#include "host/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace host {
namespace {

/// Sequential bytes gathered before they go to the file: few system calls for the small
/// writes of headers and chunk preambles, and no copy of large strips.
constexpr std::size_t BufferBytes = std::size_t(1) << 20;

/// A name beside `target` that no other writer uses, ".NAME.writing-PID-N".
std::string temporaryNameFor(const std::filesystem::path& target) {
    static std::atomic<unsigned> counter{0};
    const std::string name = "." + target.filename().string() + ".writing-" +
                             std::to_string(getpid()) + "-" + std::to_string(counter++);
    return (target.parent_path() / name).string();
}

}  // namespace

OutputFile::OutputFile(std::string target) : m_target(std::move(target)) {
    // A name left by a process that had this one's id before is passed over.
    do {
        m_temporary = temporaryNameFor(m_target);
        m_fd = ::open(m_temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    } while (m_fd < 0 && errno == EEXIST);
    if (m_fd < 0) {
        fail(errno);
        m_temporary.clear();
    }
}

OutputFile::~OutputFile() {
    discard();
}

std::string OutputFile::error() const {
    return m_errno != 0 ? std::strerror(m_errno) : "";
}

bool OutputFile::fail(int number) {
    if (m_errno == 0) {
        m_errno = number != 0 ? number : EIO;
    }
    return false;
}

bool OutputFile::write(std::int64_t offset, const void* data, std::size_t size) {
    if (failed()) {
        return false;
    }
    const char* bytes = static_cast<const char*>(data);
    if (offset != m_bufferAt + std::int64_t(m_buffer.size()) ||
        m_buffer.size() + size > BufferBytes) {
        if (!flush()) {
            return false;
        }
        m_bufferAt = offset;
    }
    m_size = std::max(m_size, offset + std::int64_t(size));
    if (size >= BufferBytes) {
        m_bufferAt += std::int64_t(size);
        return writeThrough(offset, bytes, size);
    }
    m_buffer.insert(m_buffer.end(), bytes, bytes + size);
    return true;
}

bool OutputFile::flush() {
    if (failed()) {
        return false;
    }
    const bool written = writeThrough(m_bufferAt, m_buffer.data(), m_buffer.size());
    m_bufferAt += std::int64_t(m_buffer.size());
    m_buffer.clear();
    return written;
}

bool OutputFile::writeThrough(std::int64_t offset, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t written = ::pwrite(m_fd, data, size, offset);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return fail(written < 0 ? errno : ENOSPC);
        }
        data += written;
        size -= std::size_t(written);
        offset += written;
    }
    return true;
}

std::size_t OutputFile::read(std::int64_t offset, void* data, std::size_t size) {
    if (!flush()) {
        return 0;
    }
    std::size_t done = 0;
    while (done < size) {
        const ssize_t n = ::pread(m_fd, static_cast<char*>(data) + done, size - done,
                                  offset + std::int64_t(done));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            break;
        }
        done += std::size_t(n);
    }
    return done;
}

int OutputFile::growthRefusal() {
    struct stat status = {};
    if (!flush() || ::fstat(m_fd, &status) != 0) {
        return m_errno != 0 ? m_errno : errno;
    }
    const char zero = 0;
    if (::pwrite(m_fd, &zero, 1, status.st_size) != 1) {
        return errno;
    }
    return ::ftruncate(m_fd, status.st_size) == 0 ? 0 : errno;
}

bool OutputFile::commit() {
    if (m_fd < 0) {
        return false;  // discarded, or never opened
    }
    if (flush() && ::fsync(m_fd) != 0) {
        fail(errno);
    }
    // A failed close may be the first sign of lost bytes (on network file systems).
    if (::close(m_fd) != 0) {
        fail(errno);
    }
    m_fd = -1;
    if (!failed() && std::rename(m_temporary.c_str(), m_target.c_str()) != 0) {
        fail(errno);
    }
    if (failed()) {
        discard();
        return false;
    }
    m_temporary.clear();
    return true;
}

void OutputFile::discard() {
    if (m_fd >= 0) {
        ::close(m_fd);
        m_fd = -1;
    }
    if (!m_temporary.empty()) {
        ::unlink(m_temporary.c_str());
        m_temporary.clear();
        fail(ECANCELED);
    }
    m_buffer.clear();
}

}  // namespace host
