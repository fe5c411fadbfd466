#pragma once
// Import of one Qdx file into a scene-graph subtree.
//
// ksQdxLoader::read(fileName, options) reads the file through the Qdx SDK,
// brings the scene into the host's axis system and length unit, and builds
// one node per Qdx node: transforms with pivots, meshes as polygon geometry
// (split per material when a mesh uses several), plastic materials with
// their textures. Options (comma-separated): flush_transforms (bake
// transforms into geometry, default off), reduce_keyframes (default on),
// enable_metadata (default on).
//
// A loader lives for one read(); it uses process-wide host singletons
// (animation manager, scene data, camera pool), so two imports must not run
// at the same time. Messages go to the host log (progress and failures) and
// to standard output (diagnostics, versions, units, textures).
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <kestrel/ksAnimManager.h>
#include <kestrel/osg/Animation.h>
#include <kestrel/osg/Geometry.h>
#include <kestrel/osg/Image.h>
#include <kestrel/osg/Node.h>
#include <kestrel/osg/Surface.h>
#include <kestrel/osg/UberMaterial.h>
#include <kestrel/osg/Vector.h>

namespace qdxsdk {
class QdxAnimCurve;
class QdxAnimCurveNode;
class QdxAnimLayer;
class QdxNode;
class QdxNurbsSurface;
class QdxManager;
class QdxScene;
class QdxProperty;
class QdxTexture;
class QdxFileTexture;
class QdxSurfaceMaterial;
} // namespace qdxsdk

class ksQdxLoader {
public:
    // Null node for an empty file name or a file that cannot be read.
    static osg::NodePtr read(const std::string& fileName, const std::string& options);

    ksQdxLoader(const std::string& fileName, const std::string& options);
    ksQdxLoader(const ksQdxLoader& other);
    ksQdxLoader& operator=(const ksQdxLoader& other);
    virtual ~ksQdxLoader();

    osg::NodePtr read();

    // What a mesh conversion hands on to skin weights and vertex caches:
    // every produced vertex under the Qdx control point it came from (empty
    // in the control-point layout, where vertex and control point agree),
    // and the (polygon, corner) of every produced vertex.
    using ControlPointMap = std::multimap<int, int>;
    using CornerList = std::vector<std::pair<int, int>>;

private:
    struct Data;
    using TextureTable = std::map<qdxsdk::QdxTexture*, osg::ImagePtr>;

    void parseOptions();

    // Nodes and transforms.
    void preConvert(qdxsdk::QdxNode* root);
    void preConvertNode(qdxsdk::QdxNode* node);
    bool transformsEqual(qdxsdk::QdxNode* a, qdxsdk::QdxNode* b) const;
    // Converts root and its subtree; convertNode converts one node.
    osg::NodePtr convert(qdxsdk::QdxNode* root);
    osg::NodePtr convertNode(qdxsdk::QdxNode* node);
    osg::NodePtr getNode(qdxsdk::QdxNode* node) const;
    void setTransformValues(qdxsdk::QdxNode* node, osg::NodePtr& osgNode, double scale);
    osg::Vec3f calculateRotationOrientation(qdxsdk::QdxNode* node) const;
    void optimizeGeometry(const osg::NodePtr& node, bool hasVertexAnimation);
    void reportProgress();
    // Logs the arrays the SDK could not decode from the file when they were
    // read (their values came out as zeros).
    void warnArrayFaults(const qdxsdk::QdxManager* manager) const;

    // Meshes.
    osg::NodePtr convertMultiMeshSort(qdxsdk::QdxNode* node);
    osg::NodePtr convertMesh(qdxsdk::QdxNode* node);

    // Materials and textures.
    void loadSupportedTexturesRecursive(qdxsdk::QdxNode* root, TextureTable& textures);
    void loadSupportedTextures(qdxsdk::QdxNode* node, TextureTable& textures);
    void loadTexturesForProperty(const qdxsdk::QdxProperty& property, TextureTable& textures);
    void loadTexture(qdxsdk::QdxTexture* texture, TextureTable& textures);
    osg::ImagePtr getImageFromQdxTexture(qdxsdk::QdxTexture* texture) const;
    osg::MaterialPtr convertMaterial(qdxsdk::QdxSurfaceMaterial* material);
    void convertDiffuseMaterial(qdxsdk::QdxSurfaceMaterial* material,
                                const osg::UPlasticMaterialPtr& plastic);
    void convertSpecularMaterial(qdxsdk::QdxSurfaceMaterial* material,
                                 const osg::UPlasticMaterialPtr& plastic);
    void convertEmissiveMaterial(qdxsdk::QdxSurfaceMaterial* material,
                                 const osg::UPlasticMaterialPtr& plastic);
    void convertBumpMaterial(qdxsdk::QdxSurfaceMaterial* material,
                             const osg::UPlasticMaterialPtr& plastic);
    void convertTransparencyMaterial(qdxsdk::QdxSurfaceMaterial* material,
                                     const osg::UPlasticMaterialPtr& plastic);
    void convertTextureProperties(qdxsdk::QdxTexture* texture,
                                  const osg::ColorComponentSettingsPtr& settings);

    // Attribute kinds whose import is not carried yet: they give no node,
    // and the node is imported as a plain transform.
    osg::NodePtr convertSkeleton(qdxsdk::QdxNode* node);
    osg::NodePtr convertCamera(qdxsdk::QdxNode* node);
    osg::NodePtr convertLight(qdxsdk::QdxNode* node);

    // Surfaces and lines. A surface core has the homogeneous control points
    // of every effective point (periodic and closed directions repeat
    // theirs); null when the counts disagree.
    osg::NodePtr convertNurbsSurface(qdxsdk::QdxNode* node);
    osg::SurfacePtr convertNurbsSurface(qdxsdk::QdxNurbsSurface* nurbs);
    osg::NodePtr convertTrimmedNurbsSurface(qdxsdk::QdxNode* node);
    osg::NodePtr convertLine(qdxsdk::QdxNode* node);
    // A node named after the Qdx node with drawable as core, which gets the
    // material of slot 0 of the attribute's first node.
    osg::NodePtr makeDrawableNode(qdxsdk::QdxNode* node, const osg::DrawablePtr& drawable);

    // Animation, skins and vertex caches.
    void extractAnimations(qdxsdk::QdxScene* scene);
    void convertAnimations(qdxsdk::QdxNode* node, const osg::NodePtr& target);
    // The node's animation attachment, made and attached when it has none.
    osg::AnimAttachmentPtr getAnimAttachment(const osg::NodePtr& node);
    void createChannelCurveNodes(std::vector<ksAnimManager::ksOSGChannelData> channels,
                                 const osg::AnimAttachmentPtr& attachment);
    // Every curve of every channel of curveNode; channel c takes component
    // c of components and offsets[c] (else the last offset taken).
    void convertAnimationCurveNode(qdxsdk::QdxAnimCurveNode* curveNode, const osg::NodePtr& target,
                                   const std::string& prefix, const std::string& components,
                                   std::vector<double> offsets, double scale,
                                   qdxsdk::QdxAnimCurve* reference);
    // One curve onto the host curve of its channel: (value + offset) * scale,
    // or (value - reference) * scale on frames when a reference is given.
    void convertCurve(qdxsdk::QdxAnimCurve* curve, const osg::NodePtr& target,
                      const std::string& prefix, const std::string& component, double offset,
                      double scale, qdxsdk::QdxAnimCurve* reference);
    // The layered evaluation reads a curve node's stored value where a
    // channel has no keys: such a channel gets a one-point host curve with
    // (stored value + offset) * scale, unless the value changes nothing (in
    // the base layer the property's own value, which is the rest value; in
    // an additive layer 0, or 1 for scaling).
    void holdUnkeyedChannels(qdxsdk::QdxAnimCurveNode* curveNode,
                             const qdxsdk::QdxProperty& property, qdxsdk::QdxAnimLayer* layer,
                             const osg::NodePtr& target, const std::string& prefix,
                             const std::string& components, const std::vector<double>& offsets,
                             double scale);
    // The host curve of a channel component of target (null when the node
    // has no such channel), the node's channel curve nodes made first.
    osg::AnimCurvePtr channelCurve(const osg::NodePtr& target, const std::string& prefix,
                                   const std::string& component);
    // Opens the first vertex cache of every geometry, a Tove cache first
    // converted to a point cache beside it at the scene's frame rate (read
    // directly when that cannot be written). Failures are logged; the
    // meshes still import, without vertex animation.
    void preparePointCacheData(qdxsdk::QdxScene* scene);
    // Gives geometry a TimeShapeCache named "<node>_VertexAnim" with one
    // shape per cached frame: positions per vertex in the host's unit,
    // normals recomputed from each frame. True when it did.
    bool createAnimationCurvesFromVertexCache(qdxsdk::QdxNode* node, const osg::NodePtr& target,
                                              const osg::GeometryPtr& geometry,
                                              const ControlPointMap& vertices,
                                              const CornerList& corners);
    // Gives geometry a skin attachment with one cluster per cluster of the
    // node's first usable skin; true when the geometry counts as skinned.
    bool getSkinWeights(qdxsdk::QdxNode* node, const osg::NodePtr& target,
                        const osg::GeometryPtr& geometry, const ControlPointMap& vertices);
    void updateCameraTargets(const osg::NodePtr& root);
    void updateDeformerClusterNodes(const osg::NodePtr& root);

    osg::UInt32 _status = 0;
    std::unique_ptr<Data> _d;
    osg::Int32 _convertedNodes = 0;
    osg::Int32 _totalNodes = 0;
    double fps = 0.0;
    osg::Int32 _progress = 0;
    double _unitScaleFactor = 1.0;
    double _sceneScaleFactor = 1.0;
    double _unitConversionFactor = 1.0;
};
