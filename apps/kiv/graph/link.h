// link.h - what two nodes of a graph have to agree on.
#pragma once

#include "apps/kiv/graph/graphText.h"
#include "apps/kiv/graph/picture.h"

// Throws GraphError when `node` does not want what the node above it offers: names both,
// the key, what is wanted, what is offered, who set it, and what to write.
void checkLink(const NodeText& above, const NodeText& node, const PictureFormat& offered);

// Notes in `out` who set what has changed on the way through a node.
void noteOrigins(const NodeText& node, const PictureFormat& in, PictureFormat* out);

// "JPEG 1280x720, 30 fps, live"
std::string describeLink(const PictureFormat& format);
