// Export of a scene-graph subtree as a Qdx file: the driver and every
// converter (nodes and transforms, geometry, materials and textures).
#include "ksQdxWriter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include <QDir>
#include <QFileInfo>
#include <QString>

#include <kestrel/ksAnimEvaluator.h>
#include <kestrel/ksAnimManager.h>
#include <kestrel/ksConstraintManager.h>
#include <kestrel/ksLights.h>
#include <kestrel/ksLog.h>
#include <kestrel/ksMaterials.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/ksOpenSGExt.h>
#include <kestrel/ksSceneDataManager.h>
#include <kestrel/ksString.h>
#include <kestrel/ksUberCameraPool.h>
#include <kestrel/ksUberCameraUtils.h>
#include <kestrel/ksVersionInfo.h>
#include <kestrel/osg/AimConstraint.h>
#include <kestrel/osg/ConstraintObject.h>
#include <kestrel/osg/Group.h>
#include <kestrel/osg/Image.h>
#include <kestrel/osg/Material.h>
#include <kestrel/osg/Quaternion.h>
#include <kestrel/osg/SceneFileHandler.h>
#include <kestrel/osg/UberCamera.h>
#include <kestrel/osg/UberLight.h>
#include <kestrel/osg/UberMaterial.h>

#include <qdxsdk/qdxsdk.h>

#include "ksQdxLightUnits.h"
#include "ksQdxMetaData.h"

using namespace qdxsdk;

struct ksQdxWriter::Data {
    osg::NodePtr node;
    std::string fileName;
    std::string options;
    bool exportVertexColors = false;
    bool asciiFormat = false;
    // Scene units to centimetres; multiplies every exported length.
    double unitScaleFactor = 1.0;
    QdxManager* manager = nullptr;
    QdxScene* scene = nullptr;
    // One SDK material per scene-graph material (a null entry: nothing to
    // write for that material).
    std::map<const osg::Material*, QdxSurfaceMaterial*> materialMap;
    // One SDK attribute per shared node core.
    std::map<const osg::NodeCore*, QdxNodeAttribute*> attributeMap;
    // Animation: the one stack written, its layers by name ("" the base
    // layer) and the time span of the keys written.
    QdxAnimStack* animStack = nullptr;
    std::map<std::string, QdxAnimLayer*> animLayers;
    long long animStart = 0, animStop = 0;
    bool animAny = false;
};

namespace {

// Console lines are flushed at once so that they interleave correctly with
// the host's own output.
void printLine(const std::string& text) {
    std::fputs(text.c_str(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

bool exportProgress(void*, float percentage, const char*) {
    float p = percentage > 0.f ? percentage : 0.f;
    osg::SceneFileHandler::the().updateWriteProgress(static_cast<unsigned>(p));
    return true;
}

// The text behind the first occurrence of key ("" when the key is absent).
bool findOption(const std::string& options, const char* key, std::string& value) {
    std::size_t at = options.find(key);
    if (at == std::string::npos) return false;
    value = ksString::getStringOption(options.substr(at + std::strlen(key)));
    return true;
}

QdxDouble3 toDouble3(const osg::Vec3f& v) {
    return QdxDouble3(v[0], v[1], v[2]);
}
QdxVector4 toVector4(const osg::Vec3f& v, double scale = 1.0) {
    return QdxVector4(v[0] * scale, v[1] * scale, v[2] * scale, 1.0);
}

std::string toStd(const QString& s) {
    return s.toUtf8().toStdString();
}

// Film sizes and offsets: millimetres on the host, inches in the file.
constexpr double kMmPerInch = 25.4;
// Centimetre width of an orthographic view at zoom 1.
constexpr double kOrthoZoomSize = 30.0;

const char* const kUVSetNames[5] = {"Material UV Set", "Lightmap UV Set", "UV Set 3", "UV Set 4",
                                    "UV Set 5"};

// Index of each control point's value in a property addressed by bit, -1
// where no triangle corner ties the two together. Empty when that is the
// control point itself: the property shares the positions' index (the usual
// case) or the index does not address it at all, and it is long enough.
std::vector<osg::Int32> perControlPointIndex(const osg::Geometry& geo, osg::UInt16 bit,
                                             osg::UInt32 valueCount, osg::UInt32 pointCount) {
    const osg::Int32 slot = geo.findMappingIndex(bit);
    if ((slot < 0 || slot == geo.findMappingIndex(osg::MapPosition)) && valueCount >= pointCount)
        return {};
    std::vector<osg::Int32> at(pointCount, -1);
    for (auto it = geo.beginTriangles(), end = geo.endTriangles(); it != end; ++it)
        for (int k = 0; k < 3; ++k) {
            osg::UInt32 p = it.getPositionIndex(k);
            osg::UInt32 v = it.getPropertyIndex(k, bit);
            if (p < pointCount && v < valueCount) at[p] = static_cast<osg::Int32>(v);
        }
    return at;
}

// Sets a by-control-point element's direct array from a property of float
// components: stride doubles per point, the first of them copied from the
// point's value, the rest (and every component of a point without value)
// taken from fill. False for a property that does not hold floats.
template <class Element>
bool fillPerControlPoint(Element* element, const osg::Geometry& geo, osg::UInt16 bit,
                         const osg::GeoProperty& property, osg::UInt32 count, int stride,
                         const std::array<double, 4>& fill) {
    const osg::UInt32 dim = property.getDimension();
    if (dim == 0 || dim > 4 || property.getElementSize() != dim * sizeof(float)) return false;
    const std::vector<osg::Int32> at = perControlPointIndex(geo, bit, property.size(), count);
    const float* values = static_cast<const float*>(property.getData());
    const int copied = std::min(static_cast<int>(dim), stride);
    element->SetMappingMode(QdxLayerElement::eByControlPoint);
    element->SetReferenceMode(QdxLayerElement::eDirect);
    element->GetDirectArray().Resize(static_cast<int>(count));
    double* out = element->GetDirectArray().GetDoubles();
    for (osg::UInt32 i = 0; i < count; ++i, out += stride) {
        const osg::Int32 from = at.empty() ? static_cast<osg::Int32>(i) : at[i];
        const float* v = from < 0 ? nullptr : values + static_cast<std::size_t>(from) * dim;
        for (int k = 0; k < stride; ++k)
            out[k] = v && k < copied ? double(v[k]) : fill[static_cast<std::size_t>(k)];
    }
    return true;
}

// Layer 0 of a geometry gets one material index for everything.
void addSingleMaterial(QdxGeometryBase* geometry) {
    if (geometry->GetLayerCount() == 0) geometry->CreateLayer();
    QdxLayer* layer0 = geometry->GetLayer(0);
    if (layer0->GetMaterials()) return;
    auto* materials = QdxLayerElementMaterial::Create(geometry, "");
    materials->SetMappingMode(QdxLayerElement::eAllSame);
    materials->SetReferenceMode(QdxLayerElement::eIndexToDirect);
    materials->GetIndexArray().Add(0);
    layer0->SetMaterials(materials);
}

} // namespace

// ---------------------------------------------------------------------------
// Driver

ksQdxWriter::ksQdxWriter(const osg::NodePtr& node, const std::string& fileName,
                         const std::string& options)
    : _d(std::make_unique<Data>()) {
    _d->node = node;
    _d->fileName = fileName;
    _d->options = options;
}

ksQdxWriter::ksQdxWriter(const ksQdxWriter& other)
    : _d(std::make_unique<Data>(*other._d)), _nodeMap(other._nodeMap),
      _targetMap(other._targetMap) {}

ksQdxWriter& ksQdxWriter::operator=(const ksQdxWriter& other) {
    if (this != &other) {
        *_d = *other._d;
        _nodeMap = other._nodeMap;
        _targetMap = other._targetMap;
    }
    return *this;
}

ksQdxWriter::~ksQdxWriter() {
    // Only an export interrupted by an exception leaves the SDK objects here.
    if (_d->manager) _d->manager->Destroy();
}

bool ksQdxWriter::write(const osg::NodePtr& node, const std::string& fileName,
                        const std::string& options) {
    if (!node || fileName.empty()) return false;
    try {
        ksQdxWriter writer(node, fileName, options);
        return writer.write();
    } catch (const std::exception& e) {
        std::printf("QDX export of '%s' failed: %s\n", fileName.c_str(), e.what());
    } catch (...) {
        std::printf("QDX export of '%s' failed\n", fileName.c_str());
    }
    std::fflush(stdout);
    return false;
}

bool ksQdxWriter::write() {
    Data& d = *_d;
    d.manager = QdxManager::Create();
    if (!d.manager) return false;
    d.scene = QdxScene::Create(d.manager, "");
    if (!d.scene) {
        d.manager->Destroy();
        d.manager = nullptr;
        return false;
    }

    QdxDocumentInfo* info = QdxDocumentInfo::Create(d.manager, "");
    info->LastSaved_ApplicationVendor.Set(QdxString("Norvale"));
    info->LastSaved_ApplicationName.Set(QdxString("Kestrel"));
    QString version =
        QString::asprintf("%s %s", ksVersionInfo::the().getDisplayVersionYearString().c_str(),
                          ksVersionInfo::the().getVersionsString().c_str());
    info->LastSaved_ApplicationVersion.Set(QdxString(toStd(version)));
    info->LastSaved_DateTime_GMT.Set(QdxDateTime::currentDateTimeGMT());
    ksQdxMetaData::addMetadataToDocumentInfo(info, d.node);
    d.scene->SetDocumentInfo(info);

    printLine("save QDX scene");

    std::string requestedVersion, formatWord;
    if (!d.options.empty()) {
        findOption(d.options, "qdx_version=", requestedVersion);
        findOption(d.options, "qdx_format=", formatWord);
        std::string unused;
        if (findOption(d.options, "qdx_export_vertex_colors=", unused))
            d.exportVertexColors = ksString::getBoolOption(d.options, "qdx_export_vertex_colors");
    }
    printLine("Try to write version: " + requestedVersion + " in format: " + formatWord +
              " export vertex colors: " + (d.exportVertexColors ? "1" : "0"));

    _nodeMap.clear();
    _targetMap.clear();

    // The format word counts only together with a version: without one the
    // SDK's default writer is used.
    if (formatWord.empty()) formatWord = "binary";
    QdxIOPluginRegistry* registry = d.manager->GetIOPluginRegistry();
    int chosenFormat = -1;
    std::string chosenVersion;
    for (int f = 0; f < registry->GetWriterFormatCount() && chosenFormat < 0; ++f) {
        const char* description = registry->GetWriterFormatDescription(f);
        if (!description || !std::strstr(description, formatWord.c_str()) ||
            requestedVersion.empty())
            continue;
        for (const char** v = registry->GetWritableVersions(f); v && *v; ++v)
            if (std::strstr(*v, requestedVersion.c_str())) {
                chosenFormat = f;
                chosenVersion = *v;
                break;
            }
    }

    QdxGlobalSettings& settings = d.scene->GetGlobalSettings();
    ksSceneData* sceneData = ksSceneDataManager::getSceneData(0);
    int unit = sceneData ? sceneData->getLengthUnit() : ksSceneData::Millimeter;
    if (unit == ksSceneData::Meter) {
        settings.SetOriginalSystemUnit(QdxSystemUnit::m);
        d.unitScaleFactor = 100.0;
    } else if (unit == ksSceneData::Centimeter) {
        settings.SetOriginalSystemUnit(QdxSystemUnit::cm);
        d.unitScaleFactor = 1.0;
    } else {
        settings.SetOriginalSystemUnit(QdxSystemUnit::mm);
        d.unitScaleFactor = 0.1;
    }
    settings.SetSystemUnit(QdxSystemUnit::cm);
    settings.SetAxisSystem(ksOpenSGExt::isCameraZUp() ? QdxAxisSystem::ToveZUp
                                                      : QdxAxisSystem::ToveYUp);

    // A named time mode when one matches the host's rate, else the rate as
    // the scene's custom one; frames are turned into times at that rate.
    ksAnimManager& anim = ksAnimManager::the();
    settings.SetFrameRate(anim.fps());
    settings.SetTimelineDefaultFrames(anim.fullRangeStart(), anim.fullRangeEnd());

    const char* description =
        chosenFormat >= 0 ? registry->GetWriterFormatDescription(chosenFormat) : nullptr;
    d.asciiFormat = description && std::strstr(description, "ascii");

    ksAnimEvaluator::the().updateSceneAnimParentMap(d.node);
    QdxNode* top = convert(d.node);
    ksAnimEvaluator::the().updateSceneAnimParentMap(sceneData ? sceneData->getRootNode()
                                                              : osg::NodePtr());

    // The top node stands for the exported subtree: its children become the
    // file's top-level nodes, it is not written itself.
    if (top) {
        // Detached from the last child down and attached in order, so a
        // top level of many thousand nodes moves in linear time.
        QdxNode* root = d.scene->GetRootNode();
        std::vector<QdxNode*> children(static_cast<size_t>(top->GetChildCount()));
        for (size_t i = 0; i < children.size(); ++i)
            children[i] = top->GetChild(static_cast<int>(i));
        for (auto it = children.rbegin(); it != children.rend(); ++it)
            top->RemoveChild(*it);
        for (QdxNode* child : children)
            root->AddChild(child);
        _nodeMap.erase(d.node.get());
        top->Destroy();
    }

    updateCameraTargets();
    finishAnimations();

    std::printf("Save QDX Scene, format: %d version: %s\n", chosenFormat, chosenVersion.c_str());
    std::fflush(stdout);

    QdxExporter* exporter = QdxExporter::Create(d.manager, "");
    QdxIOSettings* ios = QdxIOSettings::Create(d.manager, "IOSRoot");
    for (const char* path :
         {"Export|AdvOptGrp|Qdx|Material", "Export|AdvOptGrp|Qdx|Texture",
          "Export|AdvOptGrp|Qdx|Shape", "Export|AdvOptGrp|Qdx|Gobo",
          "Export|AdvOptGrp|Qdx|Animation", "Export|AdvOptGrp|Qdx|Global_Settings"})
        ios->SetBoolProp(path, true);

    bool result = false;
    if (!exporter->Initialize(d.fileName.c_str(), chosenFormat, ios)) {
        std::printf("Call to QdxExporter::Initialize() failed.\n");
        std::printf("Error returned: %s\n\n", exporter->GetStatus().GetErrorString());
    } else if (!chosenVersion.empty() &&
               !exporter->SetFileExportVersion(QdxString(chosenVersion), QdxSceneRenamer::eNone)) {
        std::printf("Setting QDX Version failed.\n");
        std::printf("Error returned: %s\n\n", exporter->GetStatus().GetErrorString());
    } else {
        exporter->SetProgressCallback(exportProgress, nullptr);
        result = exporter->Export(d.scene, false);
        // What the chosen format could not carry.
        for (const std::string& note : QdxGetConversionNotes(d.scene))
            ksLog::warning("QdxExport: %s", note.c_str());
    }
    std::fflush(stdout);
    exporter->Destroy();

    d.scene->ForceKill();
    d.scene = nullptr;
    d.manager->Destroy();
    d.manager = nullptr;
    d.materialMap.clear();
    d.attributeMap.clear();
    d.animStack = nullptr;
    d.animLayers.clear();
    _nodeMap.clear();
    _targetMap.clear();
    return result;
}

// ---------------------------------------------------------------------------
// Nodes and transforms

std::string ksQdxWriter::getValidName(const char* name) const {
    std::string text = name ? name : "";
    // The text flavour reserves '%'.
    return _d->asciiFormat ? ksString::replace(text, "%", "_") : text;
}

QdxNodeAttribute* ksQdxWriter::getNodeAttribute(const osg::NodeCorePtr& core) {
    auto it = _d->attributeMap.find(core.get());
    return it == _d->attributeMap.end() ? nullptr : it->second;
}

void ksQdxWriter::addNodeAttribute(const osg::NodeCorePtr& core, QdxNodeAttribute* attribute) {
    QdxNodeAttribute*& slot = _d->attributeMap[core.get()];
    if (!slot) slot = attribute;
}

QdxNode* ksQdxWriter::convert(const osg::NodePtr& node) {
    QdxNode* top = convertNodeOnly(node);
    if (!top) return nullptr;

    // Depth first with an explicit stack, so that deep hierarchies cannot
    // exhaust the call stack. A node is finished after all its children.
    struct Frame {
        osg::NodePtr node;
        QdxNode* qdxNode;
        osg::UInt32 next;
        osg::SwitchPtr switchCore;
    };
    std::vector<Frame> stack;
    stack.push_back({node, top, 0, osg::SwitchPtr::dcast(node->getCore())});
    while (!stack.empty()) {
        Frame& frame = stack.back();
        if (frame.next >= frame.node->getNChildren()) {
            finishNode(frame.node, frame.qdxNode);
            stack.pop_back();
            continue;
        }
        osg::UInt32 index = frame.next++;
        osg::NodePtr child = frame.node->getChild(index);
        QdxNode* qdxChild = convertNodeOnly(child);
        if (!qdxChild) continue;
        if (frame.switchCore && frame.switchCore->getChoice() != static_cast<osg::Int32>(index))
            qdxChild->SetVisibility(false);
        frame.qdxNode->AddChild(qdxChild);
        // frame is invalid from here on.
        stack.push_back({child, qdxChild, 0, osg::SwitchPtr::dcast(child->getCore())});
    }
    return top;
}

QdxNode* ksQdxWriter::convertNodeOnly(const osg::NodePtr& node) {
    if (!node || !node->getCore() || ksNodeUtils::isLightTransforms(node)) return nullptr;
    const std::string name = getValidName(ksNodeUtils::getName(node).c_str());
    osg::NodeCorePtr core = node->getCore();

    QdxNode* qdxNode = nullptr;
    if (auto surface = osg::SurfacePtr::dcast(core)) {
        qdxNode = surface->getNumCurves() != 0 ? convertTrimmedSurface(node) : convertSurface(node);
    } else if (osg::GeometryPtr::dcast(core)) {
        qdxNode = convertMesh(node);
    } else if (osg::UberLightPtr::dcast(core)) {
        qdxNode = convertLight(node);
    } else if (osg::UberCameraPtr::dcast(core)) {
        if (ksUberCameraUtils::isDefaultCamera(node)) return nullptr;
        qdxNode = convertCamera(node);
    } else if (osg::TransformPtr::dcast(core)) {
        qdxNode = convertTransform(node);
    }
    // Content that cannot be written still keeps its place in the hierarchy.
    if (!qdxNode) qdxNode = QdxNode::Create(_d->scene, name.c_str());

    qdxNode->SetVisibility(node->getTraversalMask() == 0xFFFFFFFFu);
    convertAnimations(qdxNode, node);
    return qdxNode;
}

void ksQdxWriter::finishNode(const osg::NodePtr& node, QdxNode* qdxNode) {
    _nodeMap.emplace(node.get(), qdxNode);
    ksQdxMetaData::addMetaDataToQdxNode(qdxNode, node);
}

void ksQdxWriter::updateCameraTargets() {
    for (const auto& [qdxNode, targets] : _targetMap) {
        auto target = _nodeMap.find(targets.first);
        if (target != _nodeMap.end()) qdxNode->SetTarget(target->second);
        auto up = _nodeMap.find(targets.second);
        if (up != _nodeMap.end()) qdxNode->SetTargetUp(up->second);
    }
}

QdxNode* ksQdxWriter::convertTransform(const osg::NodePtr& node) {
    if (!osg::TransformPtr::dcast(node->getCore())) return nullptr;
    QdxNode* qdxNode =
        QdxNode::Create(_d->scene, getValidName(ksNodeUtils::getName(node).c_str()).c_str());
    setTransform(node, qdxNode, false);
    return qdxNode;
}

void ksQdxWriter::setTransform(osg::NodePtr node, QdxNode* qdxNode, bool addPostRotation) {
    osg::NodeCorePtr core = node->getCore();
    osg::TransformPtr transform = osg::TransformPtr::dcast(core);
    if (!transform)
        if (auto drawable = osg::DrawablePtr::dcast(core)) transform = drawable->getTransform();
    if (transform) setTransform(transform, qdxNode, addPostRotation);
}

void ksQdxWriter::setTransform(osg::TransformPtr transform, QdxNode* qdxNode,
                               bool addPostRotation) {
    const double s = _d->unitScaleFactor;
    if (auto t3d = osg::Transform3DPtr::dcast(transform)) {
        osg::Vec3f rotation = t3d->getEulerRotation();
        const osg::Vec3f& orientation = t3d->getEulerRotationOrientation();
        if (std::fabs(orientation[0]) > 1e-6f || std::fabs(orientation[1]) > 1e-6f ||
            std::fabs(orientation[2]) > 1e-6f)
            rotation = osg::Transform3D::convertQuatToEuler(t3d->getRotation(), 0);

        const auto src = QdxNode::eSourcePivot;
        qdxNode->SetPivotState(src, QdxNode::ePivotActive);
        qdxNode->SetRotationOrder(src, eEulerXYZ);
        const osg::Vec3f& t = t3d->getTranslation();
        qdxNode->LclTranslation.Set(QdxDouble3(t[0] * s, t[1] * s, t[2] * s));
        qdxNode->LclRotation.Set(toDouble3(rotation));
        qdxNode->LclScaling.Set(toDouble3(t3d->getScale()));
        qdxNode->SetScalingPivot(src, toVector4(t3d->getScalePivot(), s));
        qdxNode->SetRotationPivot(src, toVector4(t3d->getRotatePivot(), s));
        qdxNode->SetScalingOffset(src, toVector4(t3d->getScalePivotTranslation(), s));
        qdxNode->SetRotationOffset(src, toVector4(t3d->getRotatePivotTranslation(), s));
        qdxNode->SetPreRotation(src, QdxVector4(0, 0, 0));
        qdxNode->SetPostRotation(src,
                                 addPostRotation ? QdxVector4(-90, 0, 0) : QdxVector4(0, 0, 0));
        return;
    }
    // A plain matrix: both matrices keep the translation in their fourth
    // storage vector, so the elements copy one to one.
    osg::Matrix m = transform->getMatrix();
    QdxAMatrix a;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            a.m[i][j] = m[i][j];
    for (int j = 0; j < 3; ++j)
        a.m[3][j] *= s;
    QdxVector4 t = a.GetT(), r = a.GetR(), sc = a.GetS();
    qdxNode->LclTranslation.Set(QdxDouble3(t[0], t[1], t[2]));
    qdxNode->LclRotation.Set(QdxDouble3(r[0], r[1], r[2]));
    qdxNode->LclScaling.Set(QdxDouble3(sc[0], sc[1], sc[2]));
}

osg::Vec3f ksQdxWriter::calculatePostRotation(osg::Vec3f& rotation) const {
    if (rotation[0] == 0.f && rotation[1] == 0.f && rotation[2] == 0.f) return osg::Vec3f();
    return osg::Quaternion::fromEulerXYZDeg(rotation).getEulerXYZDeg();
}

// ---------------------------------------------------------------------------
// Cameras and lights

QdxNode* ksQdxWriter::convertCamera(const osg::NodePtr& node) {
    auto core = osg::UberCameraPtr::dcast(node->getCore());
    if (!core) return nullptr;
    const double s = _d->unitScaleFactor;
    QdxCamera* camera = QdxCamera::Create(
        _d->scene, getValidName(ksUberCameraUtils::getName(core).c_str()).c_str());

    osg::Pnt3f from, at;
    osg::Vec3f up;
    core->getFromAtUp(from, at, up);
    camera->Position.Set(QdxDouble3(from[0] * s, from[1] * s, from[2] * s));
    camera->InterestPosition.Set(QdxDouble3(at[0] * s, at[1] * s, at[2] * s));
    camera->UpVector.Set(toDouble3(up));
    camera->SetNearPlane(core->getNear() * s);
    camera->SetFarPlane(core->getFar() * s);
    camera->SetApertureMode(core->getFovMode() != 0 ? QdxCamera::eHorizontal
                                                    : QdxCamera::eVertical);
    // Millimetres on the host, inches in the file.
    const osg::Vec2f& sensor = core->getSensorSize();
    camera->SetApertureWidth(sensor[0] / kMmPerInch);
    camera->SetApertureHeight(sensor[1] / kMmPerInch);
    camera->UseMotionBlur.Set(core->getMotionBlur());
    camera->UseDepthOfField.Set(core->getDepthOfField());
    camera->FocusDistance.Set(core->getFocusDistance());
    camera->FStop.Set(core->getFStop());
    camera->FieldOfView.Set(core->getFov());
    camera->FocalLength.Set(core->getFocalLength());
    camera->Roll.Set(core->getRoll());
    const osg::Vec4f& sides = core->getFrustumSides();
    camera->OrthoZoom.Set((sides[1] - sides[0]) * s / kOrthoZoomSize);
    camera->ProjectionType.Set(core->getProjectionMode() == 1 ? QdxCamera::eOrthogonal
                                                              : QdxCamera::ePerspective);
    const osg::Vec2f& offset = core->getPrincipalPointOffset();
    camera->FilmOffsetX.Set(offset[0] / kMmPerInch);
    camera->FilmOffsetY.Set(offset[1] / kMmPerInch);

    QdxNode* qdxNode =
        QdxNode::Create(_d->scene, getValidName(ksNodeUtils::getName(node).c_str()).c_str());
    setTransform(node, qdxNode, false);
    qdxNode->SetNodeAttribute(camera);
    // The file's camera looks along +X, the host's along -Z.
    qdxNode->SetPostRotation(QdxNode::eSourcePivot, QdxVector4(0, -90, 0));

    if (osg::AimConstraintPtr aim = ksConstraintManager::the().findAimConstraintForTarget(node)) {
        NodeKey target = nullptr, upNode = nullptr;
        if (!aim->getTargets().empty() && aim->getTargets().front())
            target = aim->getTargets().front()->getReferenceNode().get();
        if (!aim->getUpTargets().empty() && aim->getUpTargets().front())
            upNode = aim->getUpTargets().front()->getReferenceNode().get();
        _targetMap[qdxNode] = {target, upNode};
    }
    return qdxNode;
}

QdxNode* ksQdxWriter::convertLight(const osg::NodePtr& node) {
    auto core = osg::UberLightPtr::dcast(node->getCore());
    if (!core) return nullptr;
    const std::string name = getValidName(ksNodeUtils::getName(node).c_str());
    QdxNode* qdxNode = QdxNode::Create(_d->scene, name.c_str());

    QdxNodeAttribute* light = getNodeAttribute(core);
    if (!light) {
        light = makeLight(node, name);
        addNodeAttribute(core, light);
    }
    qdxNode->SetNodeAttribute(light);
    // The post-rotation turns the host's -Z emission onto the file's -Y.
    setTransform(node, qdxNode, true);
    return qdxNode;
}

QdxLight* ksQdxWriter::makeLight(const osg::NodePtr& node, const std::string& name) {
    QdxLight* light = QdxLight::Create(_d->scene, name.c_str());
    const bool area = ksLights::isAreaLight(node);
    if (ksLights::isPointLight(node)) {
        light->LightType.Set(QdxLight::ePoint);
    } else if (ksLights::isDirectionalLight(node)) {
        light->LightType.Set(QdxLight::eDirectional);
    } else if (ksLights::isSpotLight(node)) {
        const double cone = ksLights::getConeAngle(node);
        light->LightType.Set(QdxLight::eSpot);
        light->InnerAngle.Set(2.0 * cone);
        light->OuterAngle.Set(2.0 * (cone + ksLights::getPenumbraAngle(node)));
    } else if (area) {
        light->LightType.Set(QdxLight::eArea);
        if (ksLights::isSphericalLight(node))
            light->AreaLightShape.Set(QdxLight::eSphere);
        else if (ksLights::isRectangularLight(node) || ksLights::isDiskLight(node))
            light->AreaLightShape.Set(QdxLight::eRectangle);
    }
    // The inverse of the import's factors: nominal intensity 100 at the
    // host's light value for its attenuation law.
    double factor = 31.830988;
    switch (ksLights::getAttenuation(node)) {
    case 1:
        light->DecayType.Set(QdxLight::eLinear);
        factor = 3183.0989;
        break;
    case 2:
        light->DecayType.Set(QdxLight::eQuadratic);
        factor = 318309.88;
        break;
    default:
        light->DecayType.Set(QdxLight::eNone);
        break;
    }
    if (area) factor = 100.0;
    const osg::Color3f diffuse = ksLights::getDiffuse(node);
    light->Color.Set(QdxDouble3(diffuse[0], diffuse[1], diffuse[2]));
    light->Intensity.Set(static_cast<float>(ksLights::getLightValue(node) * factor));
    light->CastShadows.Set(ksLights::getShadowIntensity(node) > 0.f);
    return light;
}

// ---------------------------------------------------------------------------
// Geometry

void ksQdxWriter::setDrawableTransform(const osg::DrawablePtr& drawable, QdxNode* qdxNode,
                                       bool decomposedOnly) {
    osg::TransformPtr transform = drawable ? drawable->getTransform() : osg::TransformPtr();
    if (!transform || (decomposedOnly && !osg::Transform3DPtr::dcast(transform))) return;
    setTransform(transform, qdxNode, false);
}

QdxNode* ksQdxWriter::makeAttributeNode(const osg::NodePtr& node, QdxNodeAttribute* attribute,
                                        bool decomposedOnly) {
    QdxNode* qdxNode =
        QdxNode::Create(_d->scene, getValidName(ksNodeUtils::getName(node).c_str()).c_str());
    qdxNode->SetNodeAttribute(attribute);
    convertMaterial(qdxNode, node);
    setDrawableTransform(osg::DrawablePtr::dcast(node->getCore()), qdxNode, decomposedOnly);
    return qdxNode;
}

QdxNode* ksQdxWriter::convertMesh(const osg::NodePtr& node) {
    auto geometry = osg::GeometryPtr::dcast(node->getCore());
    if (!geometry) return nullptr;
    const std::string nodeName = ksNodeUtils::getName(node);
    const std::string name = getValidName(nodeName.c_str());

    if (ksNodeUtils::isShellGeometry(node)) {
        // The surfaces below carry the content; the shell only places them.
        QdxNode* qdxNode = QdxNode::Create(_d->scene, name.c_str());
        setDrawableTransform(geometry, qdxNode, true);
        return qdxNode;
    }

    QdxMesh* mesh = convertMesh(geometry, nodeName.c_str());
    return mesh ? makeAttributeNode(node, mesh, true) : nullptr;
}

QdxMesh* ksQdxWriter::convertMesh(const osg::GeometryPtr& geometry, const char* name) {
    if (QdxNodeAttribute* shared = getNodeAttribute(geometry))
        if (QdxMesh* mesh = QdxCast<QdxMesh>(shared)) return mesh;

    auto positions = osg::GeoPositions3fPtr::dcast(geometry->getPositions());
    if (!positions || positions->size() < 3) return nullptr;
    const osg::Geometry& geo = *geometry;
    const auto& points = positions->getField();
    const osg::UInt32 count = positions->size();
    const double s = _d->unitScaleFactor;

    QdxMesh* mesh = QdxMesh::Create(_d->scene, getValidName(name).c_str());
    mesh->InitControlPoints(static_cast<int>(count));
    QdxVector4* cp = mesh->GetControlPoints();
    for (osg::UInt32 i = 0; i < count; ++i)
        cp[i] = QdxVector4(points[i][0] * s, points[i][1] * s, points[i][2] * s, 1.0);

    // One walk over the triangles; only those whose corners all name
    // existing positions are written.
    // A triangle list has as many corners as stream vertices; other kinds
    // of primitive grow the array from there.
    std::vector<int> corners;
    corners.reserve(std::min<std::size_t>(geo.getVertexCount(), 0x7FFFFFFEu));
    for (auto it = geo.beginTriangles(), end = geo.endTriangles(); it != end; ++it) {
        const osg::UInt32 a = it.getPositionIndex(0), b = it.getPositionIndex(1),
                          c = it.getPositionIndex(2);
        if (a >= count || b >= count || c >= count) continue;
        if (corners.size() >= 0x7FFFFFFEu - 3) break;
        corners.insert(corners.end(), {int(a), int(b), int(c)});
    }
    if (corners.empty()) return nullptr;

    addSingleMaterial(mesh);
    QdxLayer* layer0 = mesh->GetLayer(0);
    if (auto normals = osg::GeoNormals3fPtr::dcast(geometry->getNormals())) {
        auto* element = QdxLayerElementNormal::Create(mesh, "");
        if (fillPerControlPoint(element, geo, osg::MapNormal, *normals, count, 4, {0, 0, 0, 1}))
            layer0->SetNormals(element);
        else
            element->Destroy();
    }
    for (osg::UInt32 slot = 0; slot < 5; ++slot) {
        osg::GeoTexCoordsPtr coords = geometry->getTexSlot(slot);
        if (!coords || coords->getDimension() < 2) continue;
        auto* element = QdxLayerElementUV::Create(mesh, kUVSetNames[slot]);
        if (!fillPerControlPoint(element, geo, osg::mapTexCoordsBit(slot), *coords, count, 2,
                                 {0, 0, 0, 0})) {
            element->Destroy();
            continue;
        }
        while (mesh->GetLayerCount() <= static_cast<int>(slot))
            mesh->CreateLayer();
        mesh->GetLayer(static_cast<int>(slot))->SetUVs(element, QdxLayerElement::eTextureDiffuse);
    }
    if (_d->exportVertexColors)
        if (auto occlusion = osg::GeoTexCoords4fPtr::dcast(geometry->getTexCoords7())) {
            auto* element = QdxLayerElementVertexColor::Create(mesh, "AmbientOcclusionData");
            if (fillPerControlPoint(element, geo, osg::MapTexCoords7, *occlusion, count, 4,
                                    {0, 0, 0, 1}))
                layer0->SetVertexColors(element);
            else
                element->Destroy();
        }

    // Every polygon is a triangle: the corners go over in blocks that share
    // one list of sizes, into arrays reserved once.
    const int triangles = static_cast<int>(corners.size() / 3);
    mesh->ReservePolygonCount(triangles);
    mesh->ReservePolygonVertexCount(static_cast<int>(corners.size()));
    constexpr int kBlock = 4096;
    static const std::vector<int> threes(kBlock, 3);
    for (int t = 0; t < triangles; t += kBlock)
        mesh->AddPolygons(threes.data(), std::min(kBlock, triangles - t),
                          corners.data() + std::size_t(3) * static_cast<std::size_t>(t));

    addNodeAttribute(geometry, mesh);
    return mesh;
}

QdxNode* ksQdxWriter::convertSurface(const osg::NodePtr& node) {
    auto surface = osg::SurfacePtr::dcast(node->getCore());
    if (!surface) return nullptr;
    const std::string nodeName = ksNodeUtils::getName(node);
    QdxNurbsSurface* nurbs = convertSurface(surface, nodeName.c_str());
    if (!nurbs) return nullptr;
    addSingleMaterial(nurbs);
    return makeAttributeNode(node, nurbs, false);
}

QdxNurbsSurface* ksQdxWriter::convertSurface(const osg::SurfacePtr& surface, const char* name) {
    const osg::UInt32 degreeU = surface->getDimU(), degreeV = surface->getDimV();
    const auto& knotsU = surface->getKnotsU();
    const auto& knotsV = surface->getKnotsV();
    auto points = surface->getControlPoints();
    if (degreeU > 64 || degreeV > 64 || knotsU.size() < degreeU + 2 ||
        knotsV.size() < degreeV + 2 || !points)
        return nullptr;
    const std::size_t countU = knotsU.size() - degreeU - 1;
    const std::size_t countV = knotsV.size() - degreeV - 1;
    const auto& values = points->getField();
    if (countU * countV != values.size() || values.size() > 0x7FFFFFFFu) return nullptr;
    for (const auto& p : values)
        if (p[3] == 0.f) return nullptr;

    QdxNurbsSurface* nurbs = QdxNurbsSurface::Create(_d->scene, getValidName(name).c_str());
    nurbs->SetOrder(static_cast<int>(degreeU + 1), static_cast<int>(degreeV + 1));
    nurbs->InitControlPoints(static_cast<int>(countU), QdxNurbsSurface::eOpen,
                             static_cast<int>(countV), QdxNurbsSurface::eOpen);
    const double s = _d->unitScaleFactor;
    QdxVector4* cp = nurbs->GetControlPoints();
    for (std::size_t u = 0; u < countU; ++u)
        for (std::size_t v = 0; v < countV; ++v) {
            const osg::Vec4f& p = values[u * countV + v];
            const double w = p[3];
            cp[v * countU + u] = QdxVector4(p[0] * s / w, p[1] * s / w, p[2] * s / w, w);
        }
    double* outU = nurbs->GetUKnotVector();
    for (std::size_t i = 0; i < knotsU.size(); ++i)
        outU[i] = knotsU[i];
    double* outV = nurbs->GetVKnotVector();
    for (std::size_t i = 0; i < knotsV.size(); ++i)
        outV[i] = knotsV[i];
    return nurbs;
}

QdxNode* ksQdxWriter::convertTrimmedSurface(const osg::NodePtr& node) {
    auto surface = osg::SurfacePtr::dcast(node->getCore());
    if (!surface) return nullptr;
    const std::string nodeName = ksNodeUtils::getName(node);
    const std::string name = getValidName(nodeName.c_str());

    QdxTrimNurbsSurface* trimmed = QdxCast<QdxTrimNurbsSurface>(getNodeAttribute(surface));
    if (!trimmed) {
        const auto& perLoop = surface->getCurvesPerLoop();
        const auto& degrees = surface->getDimensions();
        const auto& knotLengths = surface->getKnotLengths();
        const auto& knots = surface->getKnots();
        const auto& curvePoints = surface->getCurveControlPoints();
        const std::vector<osg::UInt32> pointCounts = surface->getCurveControlPointCounts();
        const std::size_t curves = surface->getNumCurves();
        if (knotLengths.size() < curves || pointCounts.size() < curves) return nullptr;

        QdxNurbsSurface* nurbs = convertSurface(surface, nodeName.c_str());
        if (!nurbs) return nullptr;
        trimmed = QdxTrimNurbsSurface::Create(_d->scene, name.c_str());
        trimmed->SetNurbsSurface(nurbs);
        trimmed->BeginTrimRegion();
        std::size_t curve = 0, knotAt = 0, pointAt = 0;
        for (std::size_t loop = 0; loop < perLoop.size() && curve < curves; ++loop) {
            auto* boundary = QdxBoundary::Create(_d->scene, "");
            for (osg::UInt32 c = 0; c < perLoop[loop] && curve < curves; ++c, ++curve) {
                const std::size_t degree = degrees[curve];
                const std::size_t knotCount = knotLengths[curve];
                if (degree > 64 || knotCount < degree + 2 || knotAt + knotCount > knots.size())
                    break;
                // The knots beyond an open curve's tell its type: one more
                // for a closed curve, degree more for a periodic one.
                const std::size_t pointCount = pointCounts[curve];
                const std::size_t extra =
                    knotCount - degree - 1 - std::min(pointCount, knotCount - degree - 1);
                const auto type = extra == 0   ? QdxNurbsCurve::eOpen
                                  : extra == 1 ? QdxNurbsCurve::eClosed
                                               : QdxNurbsCurve::ePeriodic;
                if (pointCount == 0 || pointAt + pointCount > curvePoints.size()) break;
                auto* nurbsCurve = QdxNurbsCurve::Create(_d->scene, "");
                nurbsCurve->SetDimension(QdxNurbsCurve::e2D);
                nurbsCurve->SetOrder(static_cast<int>(degree + 1));
                nurbsCurve->InitControlPoints(static_cast<int>(pointCount), type);
                if (nurbsCurve->GetKnotCount() != static_cast<int>(knotCount)) break;
                QdxVector4* cp = nurbsCurve->GetControlPoints();
                for (std::size_t i = 0; i < pointCount; ++i) {
                    const osg::Pnt3f& p = curvePoints[pointAt + i];
                    const double w = p[2] != 0.f ? p[2] : 1.0;
                    cp[i] = QdxVector4(p[0] / w, p[1] / w, 0.0, p[2]);
                }
                double* out = nurbsCurve->GetKnotVector();
                for (std::size_t i = 0; i < knotCount; ++i)
                    out[i] = knots[knotAt + i];
                knotAt += knotCount;
                pointAt += pointCount;
                boundary->AddCurve(nurbsCurve);
            }
            trimmed->AddBoundary(boundary);
        }
        trimmed->EndTrimRegion();
        addNodeAttribute(surface, trimmed);
    }

    return makeAttributeNode(node, trimmed, false);
}

// ---------------------------------------------------------------------------
// Materials and textures

void ksQdxWriter::convertMaterial(QdxNode* qdxNode, const osg::NodePtr& node) {
    osg::MaterialPtr material = ksMaterials::getRealMaterial(ksNodeUtils::getRealMaterial(node));
    if (!material) return;
    auto known = _d->materialMap.find(material.get());
    if (known != _d->materialMap.end()) {
        if (known->second) qdxNode->AddMaterial(known->second);
        return;
    }
    const std::string name = getValidName(ksMaterials::getName(material).c_str());

    // Measured and BRDF-driven materials have no Phong equivalent: only their
    // name is kept. Plastic materials (derived from the BRDF class) do carry
    // Phong-like colours and are written in full below.
    const osg::FieldContainerType& type = material->getType();
    if (type == osg::UBRDFMaterial::getClassType() ||
        type == osg::UXRiteMeasuredMaterial::getClassType()) {
        QdxSurfacePhong* phong = QdxSurfacePhong::Create(_d->scene, name.c_str());
        qdxNode->AddMaterial(phong);
        _d->materialMap[material.get()] = phong;
        ksQdxMetaData::addMetaDataToQdxMaterial(phong, material);
        return;
    }

    osg::Color3f ambient, diffuse, emissive, specular, transparent;
    double shininess = 0.0;
    QdxTexture* diffuseTexture = nullptr;
    QdxTexture* specularTexture = nullptr;
    QdxTexture* emissiveTexture = nullptr;
    QdxTexture* transparencyTexture = nullptr;
    auto textureOf = [&](const osg::ColorComponentSettingsPtr& channel) -> QdxTexture* {
        if (!channel || !channel->getUseTexture() || !channel->getImage()) return nullptr;
        return convertTexture(channel->getImage(), channel);
    };

    if (auto uber = osg::UberMaterialPtr::dcast(material)) {
        ambient = uber->getAmbienceColor();
        diffuse = uber->getDiffuseColor();
        specular = uber->getSpecularColor();
        osg::Color4f incandescence = uber->getIncandescenceColor();
        emissive =
            osg::Color3f(incandescence[0] * incandescence[3], incandescence[1] * incandescence[3],
                         incandescence[2] * incandescence[3]);
        transparent = uber->getSeeThrough();
        shininess = uber->getShininess();
        diffuseTexture = textureOf(uber->getDiffuseComponentSettings());
        specularTexture = textureOf(uber->getUseGlossy() ? uber->getGlossyComponentSettings()
                                                         : uber->getSpecularComponentSettings());
        emissiveTexture = textureOf(uber->getIncandescenceComponentSettings());
        transparencyTexture = textureOf(uber->getTransparencyComponentSettings());
    } else {
        auto chunkMaterial = osg::ChunkMaterialPtr::dcast(material);
        osg::MaterialChunkPtr chunk =
            chunkMaterial ? chunkMaterial->getMaterialChunk() : osg::MaterialChunkPtr();
        if (!chunk) {
            _d->materialMap[material.get()] = nullptr;
            return;
        }
        auto rgb = [](const osg::Color4f& c) { return osg::Color3f(c[0], c[1], c[2]); };
        emissive = rgb(chunk->getEmission());
        ambient = rgb(chunk->getAmbient());
        specular = rgb(chunk->getSpecular());
        diffuse = rgb(chunk->getDiffuse());
        shininess = chunk->getShininess();
        transparent = osg::Color3f(0.f, 0.f, 0.f);
    }

    QdxSurfacePhong* phong = QdxSurfacePhong::Create(_d->scene, name.c_str());
    phong->Ambient.Set(toDouble3(ambient));
    phong->AmbientFactor.Set(1.0);
    phong->Diffuse.Set(toDouble3(diffuse));
    phong->DiffuseFactor.Set(1.0);
    phong->Emissive.Set(toDouble3(emissive));
    phong->EmissiveFactor.Set(1.0);
    phong->Specular.Set(toDouble3(specular));
    phong->SpecularFactor.Set(1.0);
    phong->Shininess.Set(shininess);
    phong->TransparencyFactor.Set(0.0);
    phong->TransparentColor.Set(toDouble3(transparent));
    phong->ShadingModel.Set(QdxString("Phong"));
    qdxNode->AddMaterial(phong);

    auto connect = [&](QdxProperty& property, QdxTexture* texture) {
        if (!texture) return;
        property.ConnectSrcObject(texture);
        qdxNode->SetShadingMode(QdxNode::eTextureShading);
    };
    connect(phong->Diffuse, diffuseTexture);
    connect(phong->Emissive, emissiveTexture);
    connect(phong->Specular, specularTexture);
    if (transparencyTexture) phong->TransparencyFactor.Set(1.0);
    connect(phong->TransparentColor, transparencyTexture);

    _d->materialMap[material.get()] = phong;
    ksQdxMetaData::addMetaDataToQdxMaterial(phong, material);
}

QdxTexture* ksQdxWriter::convertTexture(const osg::ImagePtr& image,
                                        const osg::ColorComponentSettingsPtr& settings) {
    if (!image) return nullptr;
    const QString folder =
        QDir::toNativeSeparators(QFileInfo(QString::fromStdString(_d->fileName)).absolutePath() +
                                 QDir::separator() + "Textures");
    QDir dir(folder);
    if (!dir.exists()) QDir().mkdir(folder);

    const QString fileName = QFileInfo(QString::fromStdString(image->getName())).fileName();
    const QString path = QDir::toNativeSeparators(folder + QDir::separator() + fileName);
    QdxFileTexture* texture = QdxFileTexture::Create(_d->scene, toStd(fileName).c_str());
    texture->SetFileName(toStd(path).c_str());
    texture->SetRelativeFileName(
        toStd(QFileInfo(QString::fromStdString(_d->fileName)).dir().relativeFilePath(path))
            .c_str());
    // A failed write leaves the texture naming a missing file; the export
    // itself goes on.
    image->write(toStd(path));

    texture->SetTextureUse(QdxTexture::eStandard);
    texture->SetMappingType(QdxTexture::eUV);
    texture->SetMaterialUse(QdxFileTexture::eModelMaterial);
    texture->SetSwapUV(false);
    if (settings) {
        const osg::Vec2f& repeat = settings->getRepeat();
        const osg::Vec2f& offset = settings->getOffset();
        const float translationU = 0.5f - offset[0] * repeat[0] - repeat[0] / 2.f;
        const float translationV = 0.5f - offset[1] * repeat[1] - repeat[1] / 2.f;
        texture->SetScale(repeat[0], repeat[1]);
        texture->SetTranslation(translationU, translationV);
        texture->SetRotation(0.0, 0.0, static_cast<float>(settings->getRotate()));
    }
    return texture;
}

// ---------------------------------------------------------------------------
// Animation

namespace {

// Where one host curve goes in the file: file value = host value * scale +
// offset, or, for a spot light's outer angle, 2 * (penumbra + cone) with the
// cone taken from coneCurve when the layer animates it, else coneValue.
struct CurveTarget {
    QdxProperty property;
    unsigned int channel = 0;
    double scale = 1.0;
    double offset = 0.0;
    bool outerAngle = false;
};

int componentIndex(const std::string& component) {
    if (component == "X" || component == "R") return 0;
    if (component == "Y" || component == "G") return 1;
    if (component == "Z" || component == "B") return 2;
    return -1;
}

// Maps a host channel and component onto a property of the node or of its
// camera or light; false for channels the file has no place for.
bool findTarget(QdxNode* qdxNode, const std::string& channel, const std::string& component,
                double unitScale, const osg::Vec3f& orientation, CurveTarget& out) {
    const int axis = componentIndex(component);
    auto set = [&](QdxProperty property, int index, double scale, double offset = 0.0) {
        if (index < 0) return false;
        out.property = property;
        out.channel = static_cast<unsigned int>(index);
        out.scale = scale;
        out.offset = offset;
        return true;
    };
    QdxLight* light = qdxNode->GetLight();
    if (channel == "translation") return set(qdxNode->LclTranslation, axis, unitScale);
    if (channel == "eulerRotation")
        return axis >= 0 && set(qdxNode->LclRotation, axis, 1.0, -double(orientation[axis]));
    if (channel == "scale") {
        const bool area = light && light->LightType.Get() == QdxLight::eArea;
        return set(qdxNode->LclScaling, axis, area ? unitScale : 1.0);
    }
    if (channel == "visible") return set(qdxNode->Visibility, 0, 1.0);
    if (QdxCamera* camera = qdxNode->GetCamera()) {
        if (channel == "focalLength") return set(camera->FocalLength, 0, 1.0);
        if (channel == "fov") return set(camera->FieldOfView, 0, 1.0);
        if (channel == "near") return set(camera->NearPlane, 0, 1.0);
        if (channel == "far") return set(camera->FarPlane, 0, 1.0);
        if (channel == "roll") return set(camera->FilmRollValue, 0, 1.0);
        if (channel == "focusDistance") return set(camera->FocusDistance, 0, 1.0);
        if (channel == "sensorSize" && (axis == 0 || axis == 1))
            return set(axis == 0 ? camera->FilmWidth : camera->FilmHeight, 0, 1.0 / kMmPerInch);
        // The vertical film offset runs the other way in the file.
        if (channel == "principalPointOffset" && (axis == 0 || axis == 1))
            return set(axis == 0 ? camera->FilmOffsetX : camera->FilmOffsetY, 0,
                       (axis == 0 ? 1.0 : -1.0) / kMmPerInch);
        return false;
    }
    if (light) {
        // One colour feeds both of the host's light colours.
        if (channel == "diffuse" || channel == "glossy")
            return axis >= 0 && set(light->Color, axis, 1.0);
        if (channel == "intensity")
            return set(light->Intensity, 0, 1.0 / ksQdxLightUnits::intensityFactor(light));
        // The host's angles are half the file's.
        if (channel == "coneAngle") return set(light->InnerAngle, 0, 2.0);
        if (channel == "penumbraAngle" && set(light->OuterAngle, 0, 2.0)) {
            out.outerAngle = true;
            return true;
        }
    }
    return false;
}

// The value a channel of a layer's new curve node holds where it has no
// curve: nothing added for an additive layer, the property's own value
// otherwise.
double neutralValue(const QdxProperty& property, unsigned int channel, bool additive) {
    if (!additive) {
        double v[4] = {0, 0, 0, 0};
        property.EvaluateDoubles(QdxTime(), v, 4);
        return channel < 4 ? v[channel] : 0.0;
    }
    return property.GetName() == QdxString("Lcl Scaling") ? 1.0 : 0.0;
}

// Sets component c of a property's own value.
void setOwnValue(QdxProperty& property, unsigned int c, double value) {
    if (property.Is(QdxDouble3DT) || property.Is(QdxColor3DT)) {
        if (c >= 3) return;
        QdxDouble3 v = property.Get<QdxDouble3>();
        v[static_cast<int>(c)] = value;
        property.Set(v);
    } else if (c == 0) {
        property.Set(value);
    }
}

// The rest value of an animated host channel, in the file's terms: what
// the node held before its animation was ever evaluated, not what the last
// evaluation left in it.
bool restValue(const osg::NodePtr& node, const osg::AnimCurve& host, const CurveTarget& target,
               double& out) {
    const ksAnimEvaluator& evaluator = ksAnimEvaluator::the();
    double v = 0.0;
    if (!evaluator.getRestValue(node, host.getChannel(), host.getComponent(), v)) return false;
    if (target.outerAngle) {
        // The outer angle is the cone and the penumbra together.
        double cone = 0.0;
        if (!evaluator.getRestValue(node, "coneAngle", "", cone)) return false;
        out = target.scale * (v + cone);
        return true;
    }
    out = v * target.scale + target.offset;
    return true;
}

constexpr double kSmallestWeight = QdxAnimCurveDef::sMinUsableWeight;

// Weight and derivative of a host handle (time offset, value offset) over
// a segment of dt seconds; a handle of no length in time keeps its point.
std::pair<double, double> handleToKey(double dx, double dy, double dt, double scale) {
    if (!(dx > 0.0) || !(dt > 0.0)) return {kSmallestWeight, 0.0};
    // Longer than its segment: the host shortens it along its direction,
    // which is the full weight at the same slope.
    const double weight = std::clamp(dx / dt, kSmallestWeight, 1.0);
    return {weight, dy / dx * scale};
}

// Catmull-Rom slope of the host's smooth points, in value per second.
double smoothSlope(const std::vector<osg::CCPnt>& p, std::size_t k) {
    const std::size_t a = k > 0 ? k - 1 : k, b = k + 1 < p.size() ? k + 1 : k;
    const double ta = p[a].point[0], tb = p[b].point[0];
    return tb > ta ? (double(p[b].point[1]) - double(p[a].point[1])) / (tb - ta) : 0.0;
}

// Writes the host curve's points as keys of curve. Times snap to the frame
// they stand for when the host's single precision moved them off it.
void writeKeys(const osg::AnimCurve& host, QdxAnimCurve* curve, const CurveTarget& target,
               double fps, long long periodTicks) {
    const std::vector<osg::CCPnt>& points = host.getControlPoints();
    std::vector<std::size_t> used;
    std::vector<long long> ticks;
    used.reserve(points.size());
    ticks.reserve(points.size());
    for (std::size_t i = 0; i < points.size(); ++i) {
        const double t = points[i].point[0];
        if (!std::isfinite(t) || !std::isfinite(points[i].point[1])) continue;
        const double frames = t * fps;
        const double frame = std::nearbyint(frames);
        long long tick;
        if (std::fabs(frames - frame) < 1e-3 && std::fabs(frame) < 1e12) {
            tick = static_cast<long long>(frame) * periodTicks;
        } else {
            QdxTime q;
            q.SetSecondDouble(t);
            tick = q.Get();
        }
        // Times must increase; a point at the time of the one before is
        // dropped as the host does.
        if (!ticks.empty() && tick <= ticks.back()) continue;
        used.push_back(i);
        ticks.push_back(tick);
    }
    const int n = static_cast<int>(used.size());
    std::vector<double> values(used.size());
    for (std::size_t k = 0; k < used.size(); ++k)
        values[k] = double(points[used[k]].point[1]) * target.scale + target.offset;
    curve->KeyModifyBegin();
    curve->KeyAppend(ticks.data(), values.data(), n, QdxAnimCurveDef::eInterpolationLinear);
    auto seconds = [&](int k) {
        return double(ticks[static_cast<std::size_t>(k)]) / double(QdxTime::kTicksPerSecond);
    };
    for (int k = 0; k < n; ++k) {
        const osg::CCPnt& p = points[used[static_cast<std::size_t>(k)]];
        const QdxTime time(ticks[static_cast<std::size_t>(k)]);
        const double value = values[static_cast<std::size_t>(k)];
        const double dtPrev = k > 0 ? seconds(k) - seconds(k - 1) : 0.0;
        const double dtNext = k + 1 < n ? seconds(k + 1) - seconds(k) : 0.0;
        const double slope = smoothSlope(points, used[static_cast<std::size_t>(k)]) * target.scale;
        // The left side serves the segment before the key, whose kind the
        // point before gives; the first key mirrors its own right side.
        // Explicit handles serve sampled and Bezier segments, and every
        // other code, which the host reads as Bezier too.
        const osg::UInt32 before =
            k > 0 ? points[used[static_cast<std::size_t>(k - 1)]].outType : p.outType;
        double wl = QdxAnimCurveDef::sDefaultWeight, wr = wl, dl = 0.0, dr = 0.0;
        if (before == osg::AnimCurve::Smooth)
            dl = slope;
        else if (before != osg::AnimCurve::Step && before != osg::AnimCurve::Linear)
            std::tie(wl, dl) = handleToKey(-p.inTangent[0], -p.inTangent[1],
                                           k > 0 ? dtPrev : dtNext, target.scale);
        auto interpolation = QdxAnimCurveDef::eInterpolationCubic;
        if (p.outType == osg::AnimCurve::Step)
            interpolation = QdxAnimCurveDef::eInterpolationConstant;
        else if (p.outType == osg::AnimCurve::Linear)
            interpolation = QdxAnimCurveDef::eInterpolationLinear;
        else if (p.outType == osg::AnimCurve::Smooth)
            dr = slope;
        else
            std::tie(wr, dr) = handleToKey(p.outTangent[0], p.outTangent[1],
                                           k + 1 < n ? dtNext : dtPrev, target.scale);
        const auto mode =
            p.tangentsBroken ? QdxAnimCurveDef::eTangentBreak : QdxAnimCurveDef::eTangentUser;
        curve->KeySet(k, time, value, interpolation, mode, dr, dl, wr, wl);
    }
    curve->KeyModifyEnd();
}

// A spot light's outer angle, 2 * (penumbra + cone), keyed on every frame
// from the first to the last point of either curve (a cone without curve
// stands still at coneValue).
void writeOuterAngle(const osg::AnimCurve& penumbra, const osg::AnimCurve* cone, double coneValue,
                     QdxAnimCurve* curve, double fps, long long periodTicks) {
    const auto& p = penumbra.getControlPoints();
    double from = p.front().point[0], to = p.back().point[0];
    if (cone && cone->size() > 0) {
        from = std::min(from, double(cone->getControlPoints().front().point[0]));
        to = std::max(to, double(cone->getControlPoints().back().point[0]));
    }
    if (!std::isfinite(from) || !std::isfinite(to)) return;
    const double first = std::ceil(from * fps - 1e-3), last = std::floor(to * fps + 1e-3);
    // A curve spanning more frames than a host could ever play is not
    // sampled frame by frame.
    if (last - first > 1e8) return;
    std::vector<long long> ticks;
    std::vector<double> values;
    for (double f = first; f <= last; f += 1.0) {
        const double t = f / fps;
        const double c = cone && cone->size() > 0 ? cone->evaluateDouble(t) : coneValue;
        ticks.push_back(static_cast<long long>(f) * periodTicks);
        values.push_back(2.0 * (penumbra.evaluateDouble(t) + c));
    }
    curve->KeyAppend(ticks.data(), values.data(), static_cast<int>(ticks.size()),
                     QdxAnimCurveDef::eInterpolationLinear);
}

} // namespace

QdxAnimStack* ksQdxWriter::createAnimStack(QdxScene* scene) {
    const int count = scene->GetSrcObjectCount(QdxCriteria::ObjectType(QdxAnimStack::ClassId));
    return QdxAnimStack::Create(scene, ("AnimStack" + std::to_string(count)).c_str());
}

QdxAnimLayer* ksQdxWriter::createAnimLayer(QdxScene* scene, QdxAnimStack* stack) {
    QdxAnimLayer* layer =
        QdxAnimLayer::Create(scene, ("Layer" + std::to_string(stack->GetLayerCount())).c_str());
    stack->AddMember(layer);
    return layer;
}

QdxAnimStack* ksQdxWriter::getAnimStack(QdxScene* scene, int index, bool create) {
    if (!scene || index < 0) return nullptr;
    const QdxCriteria stacks = QdxCriteria::ObjectType(QdxAnimStack::ClassId);
    const int count = scene->GetSrcObjectCount(stacks);
    if (index < count) return QdxCast<QdxAnimStack>(scene->GetSrcObject(stacks, index));
    if (!create) return nullptr;
    QdxAnimStack* stack = nullptr;
    for (int i = 0; i < index + 1 - count; ++i)
        stack = createAnimStack(scene);
    return stack;
}

QdxAnimLayer* ksQdxWriter::getAnimLayer(QdxScene* scene, QdxAnimStack* stack, int index,
                                        bool create) {
    if (!scene || !stack || index < 0) return nullptr;
    const int count = stack->GetLayerCount();
    if (index < count) return stack->GetLayer(index);
    if (!create) return nullptr;
    QdxAnimLayer* layer = nullptr;
    for (int i = 0; i < index + 1 - count; ++i)
        layer = createAnimLayer(scene, stack);
    return layer;
}

QdxAnimLayer* ksQdxWriter::layerForBlock(const std::string& nodeName,
                                         const osg::AnimNodePtr& block) {
    Data& d = *_d;
    if (!d.animStack) {
        d.animStack = getAnimStack(d.scene, 0, true);
        d.scene->SetCurrentAnimationStack(d.animStack);
    }
    // A block made on import is named after its node and its layer.
    std::string name;
    if (block) {
        name = block->getName();
        const std::string prefix = nodeName + "_";
        if (name.size() > prefix.size() && name.compare(0, prefix.size(), prefix) == 0)
            name.erase(0, prefix.size());
        if (name.empty()) name = "_";
    }
    QdxAnimLayer*& layer = d.animLayers[name];
    if (layer) return layer;
    if (!block) {
        layer = getAnimLayer(d.scene, d.animStack, 0, true);
        return layer;
    }
    // The base layer is always the first.
    getAnimLayer(d.scene, d.animStack, 0, true);
    layer = getAnimLayer(d.scene, d.animStack, d.animStack->GetLayerCount(), true);
    layer->SetName(name.c_str());
    // The first block of a layer gives its blending; both count the same way
    // (additive, override, override passthrough; weight in percent).
    layer->BlendMode.Set(static_cast<int>(block->getBlendMode()));
    layer->Weight.Set(block->getWeight());
    return layer;
}

void ksQdxWriter::convertAnimations(QdxNode* qdxNode, const osg::NodePtr& node) {
    if (!qdxNode || !node) return;
    osg::AnimAttachmentPtr attachment = ksAnimManager::the().getAnimAttachment(node);
    if (!attachment || !attachment->getRoot()) return;
    Data& d = *_d;
    const double fps = ksAnimManager::the().fps();
    QdxTime period;
    period.SetSecondDouble(1.0 / fps);
    const long long periodTicks = std::max(1LL, period.Get());
    period.Set(periodTicks);
    osg::Vec3f orientation;
    if (osg::Transform3DPtr t3d = ksNodeUtils::getTransform3D(node))
        orientation = t3d->getEulerRotationOrientation();
    const std::string nodeName = ksNodeUtils::getName(node);

    // The ungrouped curves, then every block with the curves in it.
    std::vector<std::pair<osg::AnimNodePtr, std::vector<osg::AnimCurvePtr>>> groups(1);
    for (const osg::AnimNodePtr& child : attachment->getRoot()->getChildren()) {
        if (!child) continue;
        if (osg::AnimCurvePtr curve = osg::AnimCurvePtr::dcast(child)) {
            groups.front().second.push_back(curve);
        } else {
            groups.emplace_back(child, std::vector<osg::AnimCurvePtr>());
            child->collectCurves(groups.back().second);
        }
    }

    // The animated properties' own values are the rest values.
    for (const auto& group : groups)
        for (const osg::AnimCurvePtr& host : group.second) {
            CurveTarget target;
            double value = 0.0;
            if (host && host->size() > 0 &&
                findTarget(qdxNode, host->getChannel(), host->getComponent(), d.unitScaleFactor,
                           orientation, target) &&
                restValue(node, *host, target, value))
                setOwnValue(target.property, target.channel, value);
        }

    for (const auto& group : groups) {
        const osg::AnimNodePtr& block = group.first;
        const std::vector<osg::AnimCurvePtr>& curves = group.second;
        auto animated = [&](const std::string& channel, const std::string& component) {
            for (const osg::AnimCurvePtr& c : curves)
                if (c && c->size() > 0 && c->getChannel() == channel &&
                    c->getComponent() == component)
                    return c;
            return osg::AnimCurvePtr();
        };
        QdxAnimLayer* layer = nullptr;
        for (const osg::AnimCurvePtr& host : curves) {
            if (!host || host->size() == 0) continue;
            // The diffuse colour speaks for both light colours.
            if (host->getChannel() == "glossy" && animated("diffuse", host->getComponent()))
                continue;
            CurveTarget target;
            if (!findTarget(qdxNode, host->getChannel(), host->getComponent(), d.unitScaleFactor,
                            orientation, target))
                continue;
            if (!layer) layer = layerForBlock(nodeName, block);
            if (!layer) return;
            const bool additive =
                layer != d.animStack->GetLayer(0) &&
                layer->BlendMode.Get() == static_cast<int>(QdxAnimLayer::eBlendAdditive);
            QdxAnimCurveNode* curveNode = target.property.GetCurveNode(layer, false);
            if (!curveNode) {
                curveNode = target.property.GetCurveNode(layer, true);
                if (!curveNode) continue;
                for (unsigned int c = 0; c < curveNode->GetChannelsCount(); ++c)
                    curveNode->SetChannelValue(c, neutralValue(target.property, c, additive));
            }
            // A light shared by several nodes takes the first node's curves.
            if (target.channel >= curveNode->GetChannelsCount() ||
                curveNode->GetCurveCount(target.channel) > 0)
                continue;
            QdxAnimCurve* curve = curveNode->CreateCurve(curveNode->GetName(), target.channel);
            if (!curve) continue;
            if (target.outerAngle) {
                // An additive layer adds to the cone below it only what it
                // animates itself.
                osg::AnimCurvePtr cone = animated("coneAngle", "");
                const double coneValue = additive ? 0.0 : ksLights::getConeAngle(node);
                writeOuterAngle(*host, cone.get(), coneValue, curve, fps, periodTicks);
            } else {
                writeKeys(*host, curve, target, fps, periodTicks);
            }
            QdxAnimCurveFilterResample resample;
            resample.SetKeysOnFrame(true);
            resample.SetPeriodTime(period);
            resample.SetIntelligentMode(true);
            resample.Apply(*curve);
            QdxTimeSpan span;
            if (curve->GetTimeInterval(span)) {
                d.animStart = d.animAny ? std::min(d.animStart, span.GetStart().Get())
                                        : span.GetStart().Get();
                d.animStop =
                    d.animAny ? std::max(d.animStop, span.GetStop().Get()) : span.GetStop().Get();
                d.animAny = true;
            }
        }
    }
}

void ksQdxWriter::finishAnimations() {
    Data& d = *_d;
    if (!d.animStack || !d.animAny) return;
    const QdxTimeSpan span(QdxTime(d.animStart), QdxTime(d.animStop));
    d.animStack->SetLocalTimeSpan(span);
    d.animStack->SetReferenceTimeSpan(span);
}
