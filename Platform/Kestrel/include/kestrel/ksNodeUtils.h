#pragma once
// Node utilities: names, cloning, transforms, geometry checks and shells.
#include <functional>
#include <string>
#include <vector>

#include <kestrel/osg/Geometry.h>
#include <kestrel/osg/Node.h>

class ksNodeUtils {
public:
    // The node's name ("" for a null node).
    static std::string getName(const osg::NodePtr& node);
    // Names the node. recordChange: record the name change on the change
    // list (false: silent). parent: when not null, the name is made unique
    // among parent's other children by appending "_1", "_2", ...
    static void setName(const osg::NodePtr& node, const std::string& name, bool recordChange = true,
                        const osg::NodePtr& parent = osg::NullFC);

    // Copies the node tree: new nodes with the same names, masks and
    // attachments. Every copied node gets its own copy of each attachment
    // (animation curves, metadata sets, skin clusters, cached shapes), so
    // that edits to one tree never reach the other. shareCores: the copies
    // use the original cores (instances); false gives each copied node a copy
    // of its core, again with its own attachments.
    static osg::NodePtr cloneFullTree(const osg::NodePtr& node, bool shareCores = true);

    // Writes decomposed transform values into the node. The values go to
    // the core when it is a Transform3D (lights, cameras and joints are),
    // to a Drawable's own transform (created when missing), to a plain
    // Transform's matrix, or to a new Transform3D core when the node has no
    // core. Returns false for other cores (the node is left unchanged).
    // rotationOrder: the order of rotation's angles, numbered as in
    // osg::RotationOrder (unknown numbers mean XYZ); they are stored as the
    // equivalent XYZ angles. keepChildrenInPlace: children get the inverse change so that their
    // world positions stay. label, reserved, historyMode, historyIndex:
    // accepted for callers that pass undo information; unused.
    static bool setTransformNodeValues(const osg::NodePtr& node, const osg::Vec3f& translation,
                                       const osg::Vec3f& rotationOrientation,
                                       const osg::Vec3f& rotation, const osg::Vec3f& rotatePivot,
                                       const osg::Vec3f& rotatePivotTranslation,
                                       const osg::Vec3f& scale, const osg::Vec3f& scalePivot,
                                       const osg::Vec3f& scalePivotTranslation,
                                       osg::Int32 rotationOrder = 0, const std::string& label = "",
                                       bool keepChildrenInPlace = false,
                                       const osg::Vec3f& reserved = osg::Vec3f(1.f, 0.f, 0.f),
                                       osg::Int32 historyMode = 1, osg::Int32 historyIndex = -1);
    // Whether setTransformNodeValues can place this node: no core yet, a
    // transform (lights, cameras, joints) or a drawable (geometry, surface).
    static bool takesTransformValues(const osg::NodePtr& node);
    // The Transform3D that carries the node's transform values (the core,
    // or a Drawable's own transform), or null.
    static osg::Transform3DPtr getTransform3D(const osg::NodePtr& node);

    // Checks every geometry below node: primitive types and lengths agree,
    // lengths match the index, and every index is inside the property it
    // addresses. Bad geometry nodes are appended to badNodes with a warning
    // in the log. flags: VerifyRemove detaches bad nodes from their parents.
    // Returns true when all geometry is valid.
    static constexpr osg::UInt32 VerifyRemove = 1;
    static bool verifyGeometry(const osg::NodePtr& node, std::vector<osg::NodePtr>& badNodes,
                               osg::UInt32 flags = 0);
    static bool isGeometryValid(const osg::GeometryPtr& geometry, std::string* reason = nullptr);

    // A shell is a geometry node whose children are all surface nodes (at
    // least one); the geometry stands for their tessellation.
    static bool isShellGeometry(const osg::NodePtr& node);
    // Turns every node below (and including) node whose children are all
    // surfaces into a shell: its core becomes a Geometry whose own transform
    // carries the old core's transform values. tessellate: fill the shell
    // geometry with the surfaces' control-point grids as quads (a coarse
    // tessellation); false leaves it empty. Returns the number of shells made.
    static osg::UInt32 convertToShellRecursiveOptions(const osg::NodePtr& node, bool tessellate);

    // A light's helper node: a child of a light node, with a Transform core,
    // named "LightTransforms". Writers skip such nodes.
    static bool isLightTransforms(const osg::NodePtr& node);

    // The material of the node's drawable core, or null.
    static osg::MaterialPtr getRealMaterial(const osg::NodePtr& node);

    // Depth-first pre-order visit; return false from fn to skip a subtree.
    static void traverse(const osg::NodePtr& node,
                         const std::function<bool(const osg::NodePtr&)>& fn);
    // The first node below (and including) node with that name, or null.
    static osg::NodePtr findNode(const osg::NodePtr& node, const std::string& name);
};
