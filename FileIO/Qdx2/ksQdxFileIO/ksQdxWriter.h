#pragma once
// Export of a scene-graph subtree as a Qdx file.
//
// ksQdxWriter::write(node, fileName, options) converts the children of node
// (the node itself, its name and its transform are not written) into a Qdx
// scene and saves it through the Qdx SDK, in the binary or the text flavour
// and in the file version that the options ask for. It returns true only
// when the SDK wrote the file. Recognised options (comma-separated):
//   qdx_version=V               first writable version whose text contains V
//   qdx_format=W                writer whose description contains W (only
//                               together with qdx_version)
//   qdx_export_vertex_colors=B  write texture-coordinate set 7 as colours
//
// A writer lives for one call; it uses process-wide host singletons
// (animation manager and evaluator, scene data), so two exports must not
// run at the same time.
#include <map>
#include <memory>
#include <string>
#include <utility>

#include <kestrel/osg/AnimNode.h>
#include <kestrel/osg/Geometry.h>
#include <kestrel/osg/Node.h>
#include <kestrel/osg/Surface.h>
#include <kestrel/osg/Transform.h>
#include <kestrel/osg/UberMaterial.h>
#include <kestrel/osg/Vector.h>

namespace qdxsdk {
class QdxNode;
class QdxNodeAttribute;
class QdxLight;
class QdxMesh;
class QdxNurbsSurface;
class QdxTexture;
class QdxScene;
class QdxAnimStack;
class QdxAnimLayer;
} // namespace qdxsdk

class ksQdxWriter {
public:
    // Exports node's subtree to fileName. False at once for a null node or an
    // empty file name; never throws.
    static bool write(const osg::NodePtr& node, const std::string& fileName,
                      const std::string& options);

    ksQdxWriter(const osg::NodePtr& node, const std::string& fileName, const std::string& options);
    ksQdxWriter(const ksQdxWriter& other);
    ksQdxWriter& operator=(const ksQdxWriter& other);
    virtual ~ksQdxWriter();

private:
    struct Data;
    using NodeKey = const osg::Node*;

    bool write();

    // Nodes and transforms. convert() walks the subtree; convertNodeOnly()
    // makes the SDK node of one scene-graph node without its children.
    qdxsdk::QdxNode* convert(const osg::NodePtr& node);
    qdxsdk::QdxNode* convertNodeOnly(const osg::NodePtr& node);
    void finishNode(const osg::NodePtr& node, qdxsdk::QdxNode* qdxNode);
    std::string getValidName(const char* name) const;
    qdxsdk::QdxNodeAttribute* getNodeAttribute(const osg::NodeCorePtr& core);
    void addNodeAttribute(const osg::NodeCorePtr& core, qdxsdk::QdxNodeAttribute* attribute);
    void updateCameraTargets();
    qdxsdk::QdxNode* convertTransform(const osg::NodePtr& node);
    void setTransform(osg::NodePtr node, qdxsdk::QdxNode* qdxNode, bool addPostRotation);
    void setTransform(osg::TransformPtr transform, qdxsdk::QdxNode* qdxNode, bool addPostRotation);
    osg::Vec3f calculatePostRotation(osg::Vec3f& rotation) const;

    // Cameras and lights.
    qdxsdk::QdxNode* convertCamera(const osg::NodePtr& node);
    qdxsdk::QdxNode* convertLight(const osg::NodePtr& node);
    // A new light attribute with the values of node's light core.
    qdxsdk::QdxLight* makeLight(const osg::NodePtr& node, const std::string& name);

    // Geometry. makeAttributeNode makes the SDK node that carries a
    // converted attribute, with the node's material and its drawable's
    // transform (only a decomposed one when decomposedOnly is set).
    qdxsdk::QdxNode* makeAttributeNode(const osg::NodePtr& node,
                                       qdxsdk::QdxNodeAttribute* attribute, bool decomposedOnly);
    void setDrawableTransform(const osg::DrawablePtr& drawable, qdxsdk::QdxNode* qdxNode,
                              bool decomposedOnly);
    qdxsdk::QdxNode* convertMesh(const osg::NodePtr& node);
    qdxsdk::QdxMesh* convertMesh(const osg::GeometryPtr& geometry, const char* name);
    qdxsdk::QdxNode* convertSurface(const osg::NodePtr& node);
    qdxsdk::QdxNurbsSurface* convertSurface(const osg::SurfacePtr& surface, const char* name);
    qdxsdk::QdxNode* convertTrimmedSurface(const osg::NodePtr& node);

    // Materials and textures.
    void convertMaterial(qdxsdk::QdxNode* qdxNode, const osg::NodePtr& node);
    qdxsdk::QdxTexture* convertTexture(const osg::ImagePtr& image,
                                       const osg::ColorComponentSettingsPtr& settings);

    // Animation. convertAnimations writes the curves of node's animation
    // attachment onto qdxNode and its attribute: the ungrouped curves into
    // the base layer, each block into the layer its name gives.
    void convertAnimations(qdxsdk::QdxNode* qdxNode, const osg::NodePtr& node);
    // Gives the stack the time span of every key written.
    void finishAnimations();
    // The stack (layer) at index; when it does not exist and create is set,
    // stacks (layers) are appended until it does, else null.
    static qdxsdk::QdxAnimStack* getAnimStack(qdxsdk::QdxScene* scene, int index, bool create);
    static qdxsdk::QdxAnimLayer* getAnimLayer(qdxsdk::QdxScene* scene, qdxsdk::QdxAnimStack* stack,
                                              int index, bool create);
    // A new stack "AnimStack<n>" (layer "Layer<n>"), n the number there
    // were before.
    static qdxsdk::QdxAnimStack* createAnimStack(qdxsdk::QdxScene* scene);
    static qdxsdk::QdxAnimLayer* createAnimLayer(qdxsdk::QdxScene* scene,
                                                 qdxsdk::QdxAnimStack* stack);
    // The layer that the curves of block go to (the base layer for a null
    // block), made on first use.
    qdxsdk::QdxAnimLayer* layerForBlock(const std::string& nodeName, const osg::AnimNodePtr& block);

    std::unique_ptr<Data> _d;
    // Scene-graph node to the SDK node made for it.
    std::map<NodeKey, qdxsdk::QdxNode*> _nodeMap;
    // Camera or light node to its (target, up) scene-graph nodes.
    std::map<qdxsdk::QdxNode*, std::pair<NodeKey, NodeKey>> _targetMap;
};
