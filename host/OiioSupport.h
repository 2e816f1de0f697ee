// What the host's reader and writer share about OpenImageIO: metadata and messages.
// Private to the host library: not installed, since it needs OpenImageIO's headers.
#pragma once

#include <OpenImageIO/imageio.h>

#include <string>

#include "host/MetaData.h"

namespace host {

/// The attributes of `spec` (every one but pointers) as host metadata. A colour-space label
/// kept under "colorSpace" (see `addMetaData`) becomes "oiio:ColorSpace" again.
MetaData metadataOf(const OIIO::ImageSpec& spec);

/// Sets every value of `metadata` as an attribute of `spec`. The colour-space label
/// "oiio:ColorSpace" is also set as "colorSpace": OpenImageIO's EXR writer drops its own
/// attributes, and its reader would call every EXR "Linear".
void addMetaData(const MetaData& metadata, OIIO::ImageSpec& spec);

/// `text`, then ": " and the first line of OpenImageIO's `message` when there is one. A plugin
/// may add lines of its own after the library's ("PNG read error: ...", "PNG library error"),
/// but the first says what went wrong, and a report is one line.
std::string withMessage(std::string text, const std::string& message);

}  // namespace host
