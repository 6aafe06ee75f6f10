#pragma once

#include "Platform/CoreMediaIO/linux/PipeWireHeaders.h"
#include "Platform/CoreMediaIO/linux/VideoLayout.h"

#include <optional>

namespace cmio {

// What a camera node says in PipeWire's parameter language. The builder holds the memory of the results.

// One entry of the list of formats: plain values only, because clients skip entries with ranges.
const spa_pod* buildFormat(spa_pod_builder& builder, const VideoLayout& layout);
// How many buffers of which size, in memory that the node allocates.
const spa_pod* buildBuffers(spa_pod_builder& builder, const VideoLayout& layout);
// Each buffer has a header for time and sequence.
const spa_pod* buildHeaderMeta(spa_pod_builder& builder);

// The layout that a client agreed to; none for what we did not offer.
std::optional<VideoLayout> parseFormat(const spa_pod* format);

}  // namespace cmio
