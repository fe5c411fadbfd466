#pragma once
// Constraints. An AimConstraint turns its constrained node so that the
// node's local -Z axis points at the weighted average of its target nodes'
// world positions, with local +Y towards the weighted average of its up
// nodes (the scene's up axis when it has none). Each target or up entry is a
// ConstraintObject that refers to a node and carries a weight.
#include <kestrel/osg/AimConstraint.h>
#include <kestrel/osg/ConstraintObject.h>
