#pragma once
// The constraint manager: keeps the scene's constraints and applies them.
//
// An aim constraint turns its constrained node (for example a camera) so
// that its local -Z axis points at the weighted average world position of
// its targets, with local +Y towards the first up node (or the scene's up
// axis when there is none).
#include <vector>

#include <kestrel/osg/Constraint.h>

class ksConstraintManager {
public:
    static ksConstraintManager& the();
    ksConstraintManager* operator->() { return this; }

    // Creates and registers an aim constraint; targets or ups may be empty.
    // maintainOffset: the node's rotation at creation, relative to the aim
    // direction, is kept as an offset that update() applies after the aim.
    osg::AimConstraintPtr createAimConstraint(const std::vector<osg::NodePtr>& targets,
                                              const std::vector<osg::NodePtr>& ups,
                                              const osg::NodePtr& constrained, bool maintainOffset);
    // The aim constraint whose constrained node is node, or null.
    osg::AimConstraintPtr findAimConstraintForTarget(const osg::NodePtr& node) const;
    const std::vector<osg::AimConstraintPtr>& getAimConstraints() const { return _aims; }
    bool removeConstraint(const osg::AimConstraintPtr& c);
    void clear();
    // Applies every constraint (sets the constrained nodes' rotations).
    // Returns the number applied.
    osg::UInt32 update();

private:
    ksConstraintManager() = default;
    std::vector<osg::AimConstraintPtr> _aims;
};
