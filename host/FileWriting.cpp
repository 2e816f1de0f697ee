// One image file being written by OpenImageIO, whole or not at all.
#include "host/FileWriting.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "host/ExrZipStream.h"
#include "host/OiioSupport.h"
#include "host/OutputFileProxy.h"

namespace host {
namespace {

/// Rows read back at a time when a file is checked.
constexpr int ReadBackRows = 64;

}  // namespace

std::string FileWriting::refusal(const OIIO::ImageOutput* output) {
    if (output == nullptr) {
        return "no image format is known for its name";
    }
    if (!output->supports("ioproxy")) {
        return std::string("OpenImageIO's ") + output->format_name() +
               " writer cannot have its writes checked; choose another file type";
    }
    return "";
}

FileWriting::FileWriting(std::unique_ptr<OIIO::ImageOutput> output, const std::string& file)
    : m_name(file), m_file(file), m_output(std::move(output)) {}

FileWriting::~FileWriting() = default;

bool FileWriting::open(OIIO::ImageSpec& spec, const std::optional<ExrZip>& zip, int threads) {
    if (m_file.failed()) {
        return false;
    }
    m_byName = std::strcmp(m_output->format_name(), "tiff") == 0;
    if (zip) {
        auto stream =
            std::make_unique<ExrZipStream>(m_file, zip->linesPerBlock, zip->level, threads);
        m_zip = stream.get();
        m_proxy = std::move(stream);
    } else if (!m_byName) {
        m_proxy = std::make_unique<OutputFileProxy>(m_file);
    }
    if (m_proxy) {
        OIIO::Filesystem::IOProxy* proxy = m_proxy.get();
        spec.attribute("oiio:ioproxy", OIIO::TypeDesc::PTR, &proxy);
        if (!m_proxy->opened()) {
            return false;
        }
    }
    m_spec = spec;
    return m_output->open(m_file.temporary(), spec) && !m_file.failed();
}

bool FileWriting::writeStrip(int top, int bottom, const float* samples) {
    return m_output->write_scanlines(top, bottom, 0, OIIO::TypeDesc::FLOAT, samples) &&
           !m_file.failed();
}

bool FileWriting::commit() {
    return m_output->close() && (m_zip == nullptr || m_zip->finish()) &&
           (!m_byName || readsBackWhole()) && m_file.commit();
}

bool FileWriting::readsBackWhole() {
    // The reader is chosen by the format's name: the temporary's has no extension.
    const std::unique_ptr<OIIO::ImageInput> input =
        OIIO::ImageInput::create(m_output->format_name());
    OIIO::ImageSpec spec;
    if (!input || !input->open(m_file.temporary(), spec) || spec.width != m_spec.width ||
        spec.height != m_spec.height || spec.nchannels != m_spec.nchannels) {
        OIIO::geterror();
        return false;
    }
    std::vector<float> rows(std::size_t(spec.width) * std::size_t(spec.nchannels) *
                            std::size_t(ReadBackRows));
    for (int y = spec.y; y < spec.y + spec.height; y += ReadBackRows) {
        const int end = std::min(y + ReadBackRows, spec.y + spec.height);
        if (!input->read_scanlines(0, 0, y, end, 0, 0, spec.nchannels, OIIO::TypeDesc::FLOAT,
                                   rows.data())) {
            input->geterror();
            return false;
        }
    }
    return true;
}

std::string FileWriting::failure() {
    const std::string text = "Write: cannot write " + m_name;
    if (m_file.failed()) {
        return text + ": " + m_file.error();
    }
    // libtiff keeps no errno: the file tells whether the disk takes more. (It writes in order,
    // so a failed write is one past the file's end.)
    if (const int refusal = m_byName ? m_file.growthRefusal() : 0; refusal != 0) {
        return text + ": " + std::strerror(refusal);
    }
    const std::string zipCause = m_zip != nullptr ? m_zip->cause() : std::string();
    if (!zipCause.empty()) {
        return text + ": " + zipCause;
    }
    const std::string message = m_output->geterror();
    return message.empty() && m_byName ? text + ": the file does not read back whole"
                                       : withMessage(text, message);
}

}  // namespace host
