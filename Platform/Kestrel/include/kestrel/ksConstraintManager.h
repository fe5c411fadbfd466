#pragma once
// The constraint manager: keeps the scene's constraints and applies them.
//
// An aim constraint turns its constrained node (for example a camera) so
// that its local -Z axis points at the weighted average world position of
// its targets, with local +Y towards the up nodes (see osg::AimConstraint).
// Constraints do not keep nodes alive: deleting a target makes the
// constraint ignore it, and a constraint whose constrained node is deleted
// is dropped by the next update or evaluate.
#include <vector>

#include <kestrel/osg/Constraint.h>

class ksConstraintManager {
public:
    static ksConstraintManager& the();
    ksConstraintManager* operator->() { return this; }

    // Creates and registers an aim constraint; targets or ups may be empty
    // (null entries are skipped). Null when constrained is null.
    // maintainOffset: the node's rotation at creation, relative to the aim
    // rotation, is kept as an offset applied after the aim.
    osg::AimConstraintPtr createAimConstraint(const std::vector<osg::NodePtr>& targets,
                                              const std::vector<osg::NodePtr>& ups,
                                              const osg::NodePtr& constrained, bool maintainOffset);
    // The aim constraint whose constrained node is node, or null.
    osg::AimConstraintPtr findAimConstraintForTarget(const osg::NodePtr& node) const;
    const std::vector<osg::AimConstraintPtr>& getAimConstraints() const { return _aims; }
    bool removeConstraint(const osg::AimConstraintPtr& c);
    void clear();
    // Applies the constraints whose constrained node lies in root's subtree
    // (root included). A constraint is applied after those that turn its
    // targets, its up nodes or its node's parent (or their ancestors), so a
    // camera aiming at a turned node's child sees that node turned first.
    // Returns the number applied.
    osg::UInt32 evaluate(const osg::NodePtr& root);
    // Applies every constraint, as evaluate does. Returns the number applied.
    osg::UInt32 update();

private:
    ksConstraintManager() = default;
    osg::UInt32 applyUnder(const osg::Node* root);
    std::vector<osg::AimConstraintPtr> _aims;
};
