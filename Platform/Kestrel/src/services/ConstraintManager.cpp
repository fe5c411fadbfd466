#include <algorithm>
#include <deque>
#include <unordered_map>
#include <unordered_set>

#include <kestrel/ksConstraintManager.h>
#include <kestrel/ksSceneDataManager.h>

using namespace osg;

ksConstraintManager& ksConstraintManager::the() {
    static ksConstraintManager m;
    return m;
}

namespace {
Vec3f sceneUpAxis() {
    const ksSceneData* scene = ksSceneDataManager::getSceneData(0);
    return scene && !scene->isZUp() ? Vec3f(0, 1, 0) : Vec3f(0, 0, 1);
}

bool isUnder(const Node* node, const Node* root) {
    for (const Node* n = node; n; n = n->getParent().get())
        if (n == root) return true;
    return false;
}

// The constraints in the order to apply them: a constraint comes after every
// constraint that turns one of its target or up nodes, or its constrained
// node's parent, or an ancestor of one of them. Constraints caught in a
// cycle follow in registration order.
std::vector<AimConstraint*> dependencyOrder(const std::vector<AimConstraint*>& list) {
    const std::size_t n = list.size();
    std::unordered_map<const Node*, std::size_t> byNode;
    for (std::size_t i = 0; i < n; ++i)
        byNode.emplace(list[i]->getConstrainedNode().get(), i);
    std::vector<std::vector<std::size_t>> next(n);
    std::vector<std::size_t> pending(n, 0);
    for (std::size_t i = 0; i < n; ++i) {
        std::vector<NodePtr> inputs;
        for (const auto* entries : {&list[i]->getTargets(), &list[i]->getUpTargets()})
            for (const auto& e : *entries)
                inputs.push_back(e->getReferenceNode());
        inputs.push_back(list[i]->getConstrainedNode()->getParent());
        std::unordered_set<std::size_t> seen;
        for (const auto& input : inputs)
            for (const Node* a = input.get(); a; a = a->getParent().get()) {
                auto it = byNode.find(a);
                if (it == byNode.end() || it->second == i || !seen.insert(it->second).second)
                    continue;
                next[it->second].push_back(i);
                ++pending[i];
            }
    }
    std::vector<AimConstraint*> order;
    std::vector<bool> done(n, false);
    std::deque<std::size_t> ready;
    for (std::size_t i = 0; i < n; ++i)
        if (pending[i] == 0) ready.push_back(i);
    while (!ready.empty()) {
        std::size_t i = ready.front();
        ready.pop_front();
        done[i] = true;
        order.push_back(list[i]);
        for (std::size_t j : next[i])
            if (--pending[j] == 0) ready.push_back(j);
    }
    for (std::size_t i = 0; i < n; ++i)
        if (!done[i]) order.push_back(list[i]);
    return order;
}
} // namespace

AimConstraintPtr ksConstraintManager::findAimConstraintForTarget(const NodePtr& node) const {
    if (!node) return AimConstraintPtr();
    for (const auto& c : _aims)
        if (c->getConstrainedNode() == node) return c;
    return AimConstraintPtr();
}

bool ksConstraintManager::removeConstraint(const AimConstraintPtr& c) {
    auto it = std::find(_aims.begin(), _aims.end(), c);
    if (it == _aims.end()) return false;
    _aims.erase(it);
    return true;
}

void ksConstraintManager::clear() {
    _aims.clear();
}

AimConstraintPtr ksConstraintManager::createAimConstraint(const std::vector<NodePtr>& targets,
                                                          const std::vector<NodePtr>& ups,
                                                          const NodePtr& constrained,
                                                          bool maintainOffset) {
    if (!constrained) return AimConstraintPtr();
    AimConstraintPtr c = AimConstraint::create();
    c->setConstrainedNode(constrained);
    for (const auto& t : targets)
        if (t) c->addTarget(t);
    for (const auto& u : ups)
        if (u) c->addUpTarget(u);
    c->setMaintainOffset(maintainOffset);
    Quaternion aim;
    if (maintainOffset && c->computeAimRotation(sceneUpAxis(), aim)) {
        Vec3f t, s;
        Quaternion world, so;
        constrained->getWorldMatrix().getTransform(t, world, s, so);
        Quaternion offset = aim.inverse() * world;
        offset.normalize();
        c->setOffset(offset);
    }
    _aims.push_back(c);
    return c;
}

UInt32 ksConstraintManager::applyUnder(const Node* root) {
    std::erase_if(_aims, [](const AimConstraintPtr& c) { return c->isExpired(); });
    std::vector<AimConstraint*> selected;
    for (const auto& c : _aims)
        if (!root || isUnder(c->getConstrainedNode().get(), root)) selected.push_back(c.get());
    const Vec3f up = sceneUpAxis();
    UInt32 applied = 0;
    for (AimConstraint* c : dependencyOrder(selected))
        if (c->apply(up)) ++applied;
    return applied;
}

UInt32 ksConstraintManager::evaluate(const NodePtr& root) {
    return root ? applyUnder(root.get()) : 0u;
}

UInt32 ksConstraintManager::update() {
    return applyUnder(nullptr);
}
