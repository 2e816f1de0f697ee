// Output files that appear whole under their name or not at all.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace host {

/// A file written under a temporary name beside its target and renamed over the target only
/// once every byte is on disk: the target is complete or untouched, whatever fails on the
/// way (a full disk, a file size limit, an interrupt, an error of the data's producer).
///
/// Every write is checked. The first failure is kept with its errno and makes every later
/// write and `commit` fail, so a caller may write on and look once. Sequential writes go
/// through a buffer; writes elsewhere (a table patched after the data) are written through.
/// Not thread-safe: one writer at a time.
class OutputFile {
public:
    /// Creates a new temporary file ".NAME.writing-PID-N" in the folder of `target`. When
    /// that fails (no such folder, no permission), `failed()` is true and `error()` says why.
    explicit OutputFile(std::string target);
    /// Removes the temporary unless the file was committed.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    const std::string& target() const { return m_target; }
    const std::string& temporary() const { return m_temporary; }

    /// Writes `size` bytes at byte `offset` (past the end leaves a hole of zeros). False once
    /// any write has failed.
    bool write(std::int64_t offset, const void* data, std::size_t size);
    /// Writes `size` bytes after the last byte of the file.
    bool append(const void* data, std::size_t size) { return write(m_size, data, size); }
    /// Reads up to `size` bytes at `offset` of what was written; returns how many it read.
    std::size_t read(std::int64_t offset, void* data, std::size_t size);
    /// The bytes the file holds: the end of the furthest write.
    std::int64_t size() const { return m_size; }

    /// True once a write, the sync, the close or the rename failed (or the file was discarded).
    bool failed() const { return m_errno != 0; }
    /// The errno of the first failure; 0 while none.
    int errorNumber() const { return m_errno; }
    /// The system's text for `errorNumber()` ("No space left on device"); empty while none.
    std::string error() const;

    /// For a file some library wrote by name over the temporary, keeping no errno: the errno
    /// with which the file refuses one more byte past its end (ENOSPC, EFBIG), or 0 when it
    /// takes it (the byte is taken back).
    int growthRefusal();

    /// Writes what is buffered, syncs the file to disk, closes it and renames it over the
    /// target. Returns true when the target now holds every byte written; false, with the
    /// temporary removed and `error()` saying why, otherwise.
    bool commit();
    /// Gives the file up: the temporary is removed and the target left as it was. `error()`
    /// keeps an earlier failure's cause, or says "Operation canceled" when there was none.
    void discard();

private:
    bool flush();
    bool writeThrough(std::int64_t offset, const char* data, std::size_t size);
    bool fail(int number);

    std::string m_target;
    std::string m_temporary;
    int m_fd = -1;
    int m_errno = 0;
    std::int64_t m_size = 0;
    std::vector<char> m_buffer;  // bytes from m_bufferAt on, not yet written
    std::int64_t m_bufferAt = 0;
};

}  // namespace host
