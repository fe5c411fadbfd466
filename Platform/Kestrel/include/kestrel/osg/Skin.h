#pragma once
// Skinning: deformer clusters and the skin attachment of a geometry.
//
// A DeformerCluster binds geometry vertices, with weights, to one driving
// node (a joint). Bind poses: the node bind pose is the driving node's world
// matrix at binding time, the geometry bind pose the geometry's. A deformed
// vertex is sum_i w_i * nodeWorld_i * inverse(nodeBindPose_i) * geoBindPose_i * v;
// weights are used as stored (not normalised). The cluster refers to its
// node weakly: it does not keep the node alive.
#include <kestrel/osg/DeformerCluster.h>
#include <kestrel/osg/SkinAttachment.h>
