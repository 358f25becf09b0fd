// A minimal IAudioMediaType for uncompressed formats: what the base class hands
// out as a suggested format, and what hosts and tests use to describe a stream.
#pragma once

#include "platform/ApoInterfaces.h"

namespace quillon {

// Creates a media type describing `format`. The new object has one reference.
HRESULT CreateAudioMediaType(const UNCOMPRESSEDAUDIOFORMAT& format, IAudioMediaType** mediaType);

// Convenience: the format description of interleaved samples of the given kind.
UNCOMPRESSEDAUDIOFORMAT MakeUncompressedFormat(const GUID& subtype, UINT32 channels, UINT32 bytesPerContainer,
                                               UINT32 validBits, float framesPerSecond);

// Float32 with the given channel count and rate.
UNCOMPRESSEDAUDIOFORMAT MakeFloatFormat(UINT32 channels, float framesPerSecond);

}  // namespace quillon
