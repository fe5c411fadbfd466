#include <algorithm>
#include <set>

#include <kestrel/ksLog.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/osg/ChangeList.h>
#include <kestrel/osg/Surface.h>
#include <kestrel/osg/UberCamera.h>
#include <kestrel/osg/UberLight.h>

using namespace osg;

std::string ksNodeUtils::getName(const NodePtr& node) {
    return node ? node->getName() : "";
}

void ksNodeUtils::setName(const NodePtr& node, const std::string& name, bool recordChange,
                          const NodePtr& parent) {
    if (!node) return;
    std::string unique = name;
    if (parent) {
        std::set<std::string> taken;
        for (const auto& c : parent->getChildren())
            if (c != node) taken.insert(c->getName());
        for (int i = 1; taken.count(unique); ++i)
            unique = name + "_" + std::to_string(i);
    }
    bool was = ChangeList::current().isEnabled();
    if (!recordChange) ChangeList::current().setEnabled(false);
    node->setName(unique);
    ChangeList::current().setEnabled(was);
}

NodePtr ksNodeUtils::cloneFullTree(const NodePtr& node, bool shareCores) {
    if (!node) return NodePtr();
    auto copyOne = [shareCores](const NodePtr& from) {
        NodePtr copy = NodePtr::dcast(from->shallowCopy());
        copy->unshareAttachments();
        if (!shareCores && from->getCore()) {
            NodeCorePtr core = NodeCorePtr::dcast(from->getCore()->shallowCopy());
            core->unshareAttachments();
            copy->setCore(core);
        }
        return copy;
    };
    // Iterative, parents before children: each copy joins its parent's copy
    // while it is still a leaf, which keeps deep trees linear.
    NodePtr top = copyOne(node);
    std::vector<std::pair<NodePtr, NodePtr>> stack{{node, top}}; // original, copy
    while (!stack.empty()) {
        auto [from, copy] = stack.back();
        stack.pop_back();
        const auto& children = from->getChildren();
        std::vector<NodePtr> copies;
        copies.reserve(children.size());
        for (const auto& c : children) {
            copies.push_back(copyOne(c));
            copy->addChild(copies.back());
        }
        for (std::size_t i = children.size(); i-- > 0;)
            stack.emplace_back(children[i], copies[i]);
    }
    return top;
}

bool ksNodeUtils::takesTransformValues(const NodePtr& node) {
    if (!node) return false;
    const NodeCorePtr core = node->getCore();
    return !core || TransformPtr::dcast(core) || DrawablePtr::dcast(core);
}

Transform3DPtr ksNodeUtils::getTransform3D(const NodePtr& node) {
    if (!node || !node->getCore()) return Transform3DPtr();
    if (auto t = Transform3DPtr::dcast(node->getCore())) return t;
    if (auto d = DrawablePtr::dcast(node->getCore()))
        return Transform3DPtr::dcast(d->getTransform());
    return Transform3DPtr();
}

bool ksNodeUtils::setTransformNodeValues(
    const NodePtr& node, const Vec3f& translation, const Vec3f& rotationOrientation,
    const Vec3f& rotation, const Vec3f& rotatePivot, const Vec3f& rotatePivotTranslation,
    const Vec3f& scale, const Vec3f& scalePivot, const Vec3f& scalePivotTranslation,
    Int32 rotationOrder, const std::string&, bool keepChildrenInPlace, const Vec3f&, Int32, Int32) {
    if (!takesTransformValues(node)) return false;
    Matrix before = node->getLocalMatrix();
    Transform3DPtr t3d = getTransform3D(node);
    TransformPtr plain;
    if (!t3d) {
        NodeCorePtr core = node->getCore();
        if (!core) {
            t3d = Transform3D::create();
            node->setCore(t3d);
        } else if (auto d = DrawablePtr::dcast(core)) {
            if (d->getTransform())
                plain = d->getTransform();
            else {
                t3d = Transform3D::create();
                d->setTransform(t3d);
            }
        } else if (auto t = TransformPtr::dcast(core)) {
            plain = t;
        } else {
            return false;
        }
    }
    Transform3DPtr target = t3d ? t3d : Transform3D::create();
    target->setTranslation(translation);
    target->setEulerRotationOrientation(rotationOrientation);
    // The scene graph stores XYZ angles; other orders are converted.
    const RotationOrder order = rotationOrderFromIndex(rotationOrder);
    target->setEulerRotation(order == RotationOrder::XYZ
                                 ? rotation
                                 : Quaternion::fromEulerDeg(rotation, order).getEulerXYZDeg());
    target->setRotatePivot(rotatePivot);
    target->setRotatePivotTranslation(rotatePivotTranslation);
    target->setScale(scale);
    target->setScalePivot(scalePivot);
    target->setScalePivotTranslation(scalePivotTranslation);
    if (plain) plain->setMatrix(target->getMatrix());
    if (keepChildrenInPlace) {
        // child' = inverse(after) * before * child keeps child world matrices.
        Matrix inv;
        node->getLocalMatrix().inverse(inv);
        Matrix delta = inv * before;
        for (const auto& c : node->getChildren()) {
            Matrix m = delta * c->getLocalMatrix();
            if (auto ct = getTransform3D(c))
                ct->setMatrix(m);
            else if (auto tr = TransformPtr::dcast(c->getCore()))
                tr->setMatrix(m);
        }
    }
    return true;
}

bool ksNodeUtils::isGeometryValid(const GeometryPtr& g, std::string* reason) {
    auto fail = [&](const std::string& why) {
        if (reason) *reason = why;
        return false;
    };
    if (!g) return fail("no geometry");
    UInt32 nTypes = g->getTypes() ? g->getTypes()->size() : 0;
    UInt32 nLengths = g->getLengths() ? g->getLengths()->size() : 0;
    if (g->getLengths() && nTypes != nLengths)
        return fail(std::to_string(nTypes) + " primitive types but " + std::to_string(nLengths) +
                    " lengths");
    UInt32 stride = g->getIndexStride();
    if (g->getIndices() && g->getIndices()->size() % stride != 0)
        return fail("index size is not a multiple of the mapping");
    UInt64 total = 0;
    if (auto l = dynamic_cast<const GeoPLengthsUI32*>(g->getLengths().get()))
        for (UInt32 v : l->getField())
            total += v;
    if (g->getLengths() && total != g->getVertexCount())
        return fail("lengths sum to " + std::to_string(total) + " but there are " +
                    std::to_string(g->getVertexCount()) + " vertices");
    auto idx = dynamic_cast<const GeoIndicesUI32*>(g->getIndices().get());
    if (!idx || idx->empty()) return true;
    const auto& ind = idx->getField();
    std::vector<UInt16> mapping = g->getIndexMapping();
    if (mapping.empty()) mapping.push_back(MapPosition);
    // The highest index of each slot, found once and checked against every
    // property the slot maps; the first index out of range is named.
    std::vector<Int64> highest(mapping.size(), -1);
    for (std::size_t slot = 0; slot < mapping.size(); ++slot) {
        for (UInt32 bit = 1; bit <= MapTexCoords7; bit <<= 1) {
            if (!(mapping[slot] & bit)) continue;
            GeoPropertyPtr p = g->getProperty(static_cast<UInt16>(bit));
            if (!p) {
                if (bit == MapPosition) return fail("the index maps positions but there are none");
                continue;
            }
            UInt32 size = p->size();
            if (highest[slot] < 0) {
                highest[slot] = 0;
                for (std::size_t i = slot; i < ind.size(); i += mapping.size())
                    highest[slot] = std::max<Int64>(highest[slot], ind[i]);
            }
            if (highest[slot] < Int64(size)) continue;
            for (std::size_t i = slot; i < ind.size(); i += mapping.size())
                if (ind[i] >= size)
                    return fail("index " + std::to_string(ind[i]) + " at " + std::to_string(i) +
                                " is out of range (" + std::to_string(size) + " values)");
        }
    }
    return true;
}

bool ksNodeUtils::verifyGeometry(const NodePtr& node, std::vector<NodePtr>& badNodes,
                                 UInt32 flags) {
    if (!node) return true;
    std::vector<NodePtr> bad;
    traverse(node, [&](const NodePtr& n) {
        auto g = GeometryPtr::dcast(n->getCore());
        std::string why;
        if (g && !isGeometryValid(g, &why)) {
            ksLog::warning("Invalid geometry in node %s: %s", n->getName().c_str(), why.c_str());
            bad.push_back(n);
        }
        return true;
    });
    for (const auto& n : bad) {
        badNodes.push_back(n);
        if ((flags & VerifyRemove) && n->getParent()) n->getParent()->subChild(n);
    }
    return bad.empty();
}

bool ksNodeUtils::isShellGeometry(const NodePtr& node) {
    if (!node || !GeometryPtr::dcast(node->getCore()) || node->getNChildren() == 0) return false;
    for (const auto& c : node->getChildren())
        if (!SurfacePtr::dcast(c->getCore())) return false;
    return true;
}

namespace {
void tessellateInto(const GeometryPtr& geo, const NodePtr& shell) {
    auto types = GeoPTypesUI8::create();
    auto lengths = GeoPLengthsUI32::create();
    auto pos = GeoPositions3f::create();
    auto idx = GeoIndicesUI32::create();
    for (const auto& c : shell->getChildren()) {
        auto s = SurfacePtr::dcast(c->getCore());
        if (!s || !s->getControlPoints()) continue;
        UInt32 nu = s->getNumControlPointsU(), nv = s->getNumControlPointsV();
        const auto& cps = s->getControlPoints()->getField();
        if (nu < 2 || nv < 2 || std::size_t(nu) * nv > cps.size()) continue;
        Matrix m = s->getLocalMatrix();
        UInt32 base = pos->size();
        for (UInt32 i = 0; i < nu * nv; ++i) {
            const Pnt4f& h = cps[i];
            Real32 w = h[3] != 0.f ? h[3] : 1.f;
            pos->push_back(m.multPnt(Pnt3f(h[0] / w, h[1] / w, h[2] / w)));
        }
        for (UInt32 u = 0; u + 1 < nu; ++u)
            for (UInt32 v = 0; v + 1 < nv; ++v) {
                types->push_back(PrimQuads);
                lengths->push_back(4);
                UInt32 a = base + u * nv + v;
                for (UInt32 k : {a, a + nv, a + nv + 1, a + 1})
                    idx->push_back(k);
            }
    }
    geo->setTypes(types);
    geo->setLengths(lengths);
    geo->setPositions(pos);
    geo->setIndices(idx);
    geo->setIndexMapping({MapPosition});
}
} // namespace

namespace {
// Turns one group whose children are all surfaces into a shell; true when
// it did.
bool convertOneToShell(const NodePtr& node, bool tessellate) {
    if (node->getNChildren() == 0 || GeometryPtr::dcast(node->getCore())) return false;
    for (const auto& c : node->getChildren())
        if (!SurfacePtr::dcast(c->getCore())) return false;
    NodeCorePtr old = node->getCore();
    // Only plain groups and transforms become shells; lights, cameras,
    // joints and switches keep their cores.
    if (old && (!GroupPtr::dcast(old) || UberLightPtr::dcast(old) || UberCameraPtr::dcast(old) ||
                JointPtr::dcast(old) || SwitchPtr::dcast(old)))
        return false;
    GeometryPtr geo = Geometry::create();
    if (auto t = TransformPtr::dcast(old)) {
        Transform3DPtr copy = Transform3DPtr::dcast(t->shallowCopy());
        if (!copy) {
            copy = Transform3D::create();
            copy->setMatrix(t->getMatrix());
        }
        geo->setTransform(copy);
    }
    node->setCore(geo);
    if (tessellate) tessellateInto(geo, node);
    return true;
}
} // namespace

UInt32 ksNodeUtils::convertToShellRecursiveOptions(const NodePtr& node, bool tessellate) {
    // Every node after all of its descendants (reverse pre-order), without
    // recursion.
    std::vector<NodePtr> order;
    traverse(node, [&order](const NodePtr& n) {
        order.push_back(n);
        return true;
    });
    UInt32 made = 0;
    for (auto it = order.rbegin(); it != order.rend(); ++it)
        if (convertOneToShell(*it, tessellate)) ++made;
    return made;
}

bool ksNodeUtils::isLightTransforms(const NodePtr& node) {
    if (!node || node->getName() != "LightTransforms" || !TransformPtr::dcast(node->getCore()))
        return false;
    NodePtr parent = node->getParent();
    return parent && UberLightPtr::dcast(parent->getCore());
}

MaterialPtr ksNodeUtils::getRealMaterial(const NodePtr& node) {
    if (!node) return MaterialPtr();
    auto d = DrawablePtr::dcast(node->getCore());
    return d ? d->getMaterial() : MaterialPtr();
}

void ksNodeUtils::traverse(const NodePtr& node, const std::function<bool(const NodePtr&)>& fn) {
    if (!node) return;
    // Iterative, so that deep trees cannot exhaust the stack.
    std::vector<NodePtr> stack{node};
    while (!stack.empty()) {
        NodePtr n = stack.back();
        stack.pop_back();
        if (!fn(n)) continue;
        const auto& ch = n->getChildren();
        for (auto it = ch.rbegin(); it != ch.rend(); ++it)
            stack.push_back(*it);
    }
}

NodePtr ksNodeUtils::findNode(const NodePtr& node, const std::string& name) {
    NodePtr found;
    traverse(node, [&](const NodePtr& n) {
        if (!found && n->getName() == name) found = n;
        return !found;
    });
    return found;
}
