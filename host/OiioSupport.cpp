// What the host's reader and writer share about OpenImageIO.
#include "host/OiioSupport.h"

#include <OpenImageIO/half.h>

#include <cstdint>
#include <vector>

namespace host {
namespace {

constexpr const char* colourSpaceLabel = "oiio:ColorSpace";
constexpr const char* colourSpaceCopy = "colorSpace";

/// Calls `f.template operator()<T>()` with T the C++ type of the numeric base type `base`.
/// Returns false, calling nothing, for strings, pointers and unknown types.
template <class F>
bool withNumberType(OIIO::TypeDesc::BASETYPE base, F&& f) {
    switch (base) {
        case OIIO::TypeDesc::UINT8:
            f.template operator()<std::uint8_t>();
            return true;
        case OIIO::TypeDesc::INT8:
            f.template operator()<std::int8_t>();
            return true;
        case OIIO::TypeDesc::UINT16:
            f.template operator()<std::uint16_t>();
            return true;
        case OIIO::TypeDesc::INT16:
            f.template operator()<std::int16_t>();
            return true;
        case OIIO::TypeDesc::UINT32:
            f.template operator()<std::uint32_t>();
            return true;
        case OIIO::TypeDesc::INT32:
            f.template operator()<std::int32_t>();
            return true;
        case OIIO::TypeDesc::UINT64:
            f.template operator()<std::uint64_t>();
            return true;
        case OIIO::TypeDesc::INT64:
            f.template operator()<std::int64_t>();
            return true;
        case OIIO::TypeDesc::HALF:
            f.template operator()<Imath::half>();
            return true;
        case OIIO::TypeDesc::FLOAT:
            f.template operator()<float>();
            return true;
        case OIIO::TypeDesc::DOUBLE:
            f.template operator()<double>();
            return true;
        default:
            return false;
    }
}

}  // namespace

MetaData metadataOf(const OIIO::ImageSpec& spec) {
    MetaData metadata;
    for (const OIIO::ParamValue& p : spec.extra_attribs) {
        // Readers give every attribute one value; several would not fit the type name.
        if (p.nvalues() != 1) {
            continue;
        }
        const OIIO::TypeDesc type = p.type();
        const std::size_t count = type.numelements() * type.aggregate;
        MetaValue value;
        value.type = type.c_str();
        if (type.basetype == OIIO::TypeDesc::STRING) {
            const auto* texts = static_cast<const OIIO::ustring*>(p.data());
            for (std::size_t i = 0; i < count; ++i) {
                value.texts.push_back(texts[i].string());
            }
        } else if (!withNumberType(OIIO::TypeDesc::BASETYPE(type.basetype), [&]<class T>() {
                       const auto* numbers = static_cast<const T*>(p.data());
                       value.numbers.assign(numbers, numbers + count);
                   })) {
            continue;
        }
        metadata.set(p.name().string(), std::move(value));
    }
    if (const MetaValue* label = metadata.find(colourSpaceCopy)) {
        metadata.set(colourSpaceLabel, *label);
    }
    return metadata;
}

void addMetaData(const MetaData& metadata, OIIO::ImageSpec& spec) {
    MetaData labelled = metadata;
    if (const MetaValue* label = metadata.find(colourSpaceLabel)) {
        labelled.set(colourSpaceCopy, *label);
    }
    for (const auto& [name, value] : labelled) {
        const OIIO::TypeDesc type(value.type);
        const std::size_t count = type.numelements() * type.aggregate;
        if (type.basetype == OIIO::TypeDesc::STRING && value.texts.size() == count) {
            std::vector<const char*> texts;
            for (const std::string& text : value.texts) {
                texts.push_back(text.c_str());
            }
            spec.attribute(name, type, texts.data());
        } else if (value.numbers.size() == count) {
            // Named captures: clang 14 cannot capture structured bindings.
            withNumberType(OIIO::TypeDesc::BASETYPE(type.basetype), [&, &name = name,
                                                                     &value = value]<class T>() {
                const std::vector<T> numbers(value.numbers.begin(), value.numbers.end());
                spec.attribute(name, type, numbers.data());
            });
        }
    }
}

std::string withMessage(std::string text, const std::string& message) {
    if (!message.empty()) {
        text += ": " + message.substr(0, message.find('\n'));
    }
    return text;
}

}  // namespace host
