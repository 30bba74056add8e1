// Topologies and their nodes: attribute bags with an object and connections, read by the session
// when it resolves a topology into a playback of the source's streams.
#ifndef KY_PLATFORM_TOPOLOGY_H
#define KY_PLATFORM_TOPOLOGY_H

#include <vector>

#include "MediaSession.h"

namespace kyplatform {

/* The nodes of a topology made by MFCreateTopology, in the order they were added; empty for any
 * other object. */
std::vector<ComPtr<IMFTopologyNode>> topologyNodes(IMFTopology* topology);

/* The node that output 0 of node feeds, or null. */
ComPtr<IMFTopologyNode> downstreamOf(IMFTopologyNode* node);

}  // namespace kyplatform

#endif
