#pragma once
// Constraints: aim constraints and their target entries.
#include <kestrel/osg/AimConstraint.h>
#include <kestrel/osg/ConstraintObject.h>
