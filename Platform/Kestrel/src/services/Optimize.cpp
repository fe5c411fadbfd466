#include <cstdint>
#include <cstring>
#include <map>

#include <kestrel/ksNodeUtils.h>
#include <kestrel/ksOptimize.h>
#include <kestrel/osg/Skin.h>
#include <kestrel/osg/Surface.h>
#include <kestrel/osg/TimeShapeCache.h>
#include <kestrel/osg/UberCamera.h>
#include <kestrel/osg/UberLight.h>

using namespace osg;

namespace {

bool isIdentity(const Matrix& m) {
    return m.equals(Matrix(), 0.f);
}

// Keeps a pose of its own: lights, cameras and joints.
bool keepsPose(const NodeCorePtr& core) {
    return UberLightPtr::dcast(core) || UberCameraPtr::dcast(core) || JointPtr::dcast(core);
}

// Cached shapes and skin bind poses follow positions baked by m.
void bakeDeformers(const GeometryPtr& g, const Matrix& m) {
    if (auto skin = g->findAttachment<SkinAttachment>()) skin->bakeTransform(m);
    auto cache = g->findAttachment<TimeShapeCache>();
    if (!cache) return;
    Matrix nm;
    m.inverse(nm);
    nm.transpose();
    for (const auto& shape : cache->getShapes()) {
        for (Pnt3f& p : shape->editPositions())
            p = m.multPnt(p);
        for (Vec3f& n : shape->editNormals()) {
            n = nm.multVec(n);
            n.normalize();
        }
        shape->changed(TimeShapeData::ShapeFieldMask);
    }
}

bool bakeGeometry(const GeometryPtr& g, const Matrix& m) {
    bakeDeformers(g, m);
    bool any = false;
    if (auto p = GeoPositions3fPtr::dcast(g->getPositions())) {
        auto np = GeoPositions3f::create();
        np->editField().reserve(p->size());
        for (const Pnt3f& v : p->getField())
            np->editField().push_back(m.multPnt(v));
        g->setPositions(np);
        any = true;
    }
    if (auto n = GeoNormals3fPtr::dcast(g->getNormals())) {
        Matrix nm;
        m.inverse(nm);
        nm.transpose();
        auto nn = GeoNormals3f::create();
        nn->editField().reserve(n->size());
        for (const Vec3f& v : n->getField()) {
            Vec3f r = nm.multVec(v);
            r.normalize();
            nn->editField().push_back(r);
        }
        g->setNormals(nn);
        any = true;
    }
    return any;
}

bool bakeSurface(const SurfacePtr& s, const Matrix& m) {
    auto p = s->getControlPoints();
    if (!p) return false;
    auto np = GeoPositions4f::create();
    np->editField().reserve(p->size());
    for (const Pnt4f& v : p->getField())
        np->editField().push_back(m.mult4(v));
    s->setControlPoints(np);
    return true;
}

struct Flusher {
    // original core -> (placement, baked core)
    std::map<const NodeCore*, std::vector<std::pair<Matrix, NodeCorePtr>>> baked;
    UInt32 changedGeometries = 0;

    // Parents before children, children in order, without recursion.
    void visitTree(const NodePtr& top) {
        std::vector<std::pair<NodePtr, Matrix>> stack{{top, Matrix()}};
        while (!stack.empty()) {
            auto [node, parentAcc] = stack.back();
            stack.pop_back();
            const Matrix childAcc = visit(node, parentAcc);
            const auto& children = node->getChildren();
            for (auto it = children.rbegin(); it != children.rend(); ++it)
                stack.emplace_back(*it, childAcc);
        }
    }

    // Flushes one node; returns what its children inherit.
    Matrix visit(const NodePtr& node, const Matrix& parentAcc) {
        NodeCorePtr core = node->getCore();
        Matrix acc = parentAcc * node->getLocalMatrix();
        Matrix childAcc = acc;
        if (core && keepsPose(core)) {
            // The pose now carries everything above it that was flushed.
            if (!node->getLocalMatrix().equals(acc, 0.f)) {
                if (core->getNParents() > 1) {
                    core = NodeCorePtr::dcast(core->shallowCopy());
                    node->setCore(core);
                }
                TransformPtr::dcast(core)->setMatrix(acc);
            }
            childAcc = Matrix();
        } else if (DrawablePtr::dcast(core)) {
            // One baked core per (original core, placement): nodes that shared
            // a core and sit at the same place keep sharing the baked one.
            auto& done = baked[core.get()];
            NodeCorePtr result;
            for (const auto& [m, c] : done)
                if (m.equals(acc, 0.f)) result = c;
            if (!result) {
                result = core->getNParents() > 1 ? NodeCorePtr::dcast(core->shallowCopy()) : core;
                // A copy bakes its own deformers, not those of the original.
                if (result != core)
                    if (auto copy = AttachmentContainerPtr::dcast(result))
                        copy->unshareAttachments();
                bool changedOne = false;
                if (!isIdentity(acc)) {
                    if (auto g = GeometryPtr::dcast(result))
                        changedOne = bakeGeometry(g, acc);
                    else if (auto s = SurfacePtr::dcast(result))
                        changedOne = bakeSurface(s, acc);
                }
                if (changedOne) ++changedGeometries;
                auto d = DrawablePtr::dcast(result);
                if (d->getTransform()) d->setTransform(TransformPtr());
                done.emplace_back(acc, result);
            }
            if (result != core) node->setCore(result);
        } else if (auto t = TransformPtr::dcast(core)) {
            if (!isIdentity(t->getMatrix())) {
                if (core->getNParents() > 1) {
                    core = NodeCorePtr::dcast(core->shallowCopy());
                    node->setCore(core);
                    t = TransformPtr::dcast(core);
                }
                t->setMatrix(Matrix());
            }
        }
        return childAcc;
    }
};

} // namespace

UInt32 ksOptimize::flushTransformations(const NodePtr& node) {
    if (!node) return 0;
    Flusher f;
    f.visitTree(node);
    return f.changedGeometries;
}
