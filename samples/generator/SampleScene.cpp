#include "SampleScene.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "SampleCaches.h"
#include "qdxsdk/qdxsdk.h"

using namespace qdxsdk;

namespace samples {
namespace {

using Polygons = std::vector<std::vector<int>>;

QdxMesh* makeMesh(QdxScene* scene, const char* name, const std::vector<QdxVector4>& points,
                  const Polygons& polygons) {
    QdxMesh* mesh = QdxMesh::Create(scene, name);
    mesh->InitControlPoints(static_cast<int>(points.size()));
    for (size_t i = 0; i < points.size(); ++i)
        mesh->SetControlPointAt(points[i], static_cast<int>(i));
    for (const auto& polygon : polygons) {
        mesh->BeginPolygon();
        for (int corner : polygon)
            mesh->AddPolygon(corner);
        mesh->EndPolygon();
    }
    return mesh;
}

QdxVector4 faceNormal(const std::vector<QdxVector4>& p, const std::vector<int>& polygon) {
    const QdxVector4 a = p[polygon[1]] - p[polygon[0]], b = p[polygon[2]] - p[polygon[0]];
    QdxVector4 n(a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0],
                 0.0);
    const double l = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    return QdxVector4(n[0] / l, n[1] / l, n[2] / l, 0.0);
}

// Flat normals, one per polygon corner.
void addCornerNormals(QdxMesh* mesh, const std::vector<QdxVector4>& points,
                      const Polygons& polygons) {
    QdxLayerElementNormal* normals = mesh->CreateElementNormal();
    normals->SetMappingMode(QdxLayerElement::eByPolygonVertex);
    normals->SetReferenceMode(QdxLayerElement::eDirect);
    for (const auto& polygon : polygons) {
        const QdxVector4 n = faceNormal(points, polygon);
        for (size_t c = 0; c < polygon.size(); ++c)
            normals->GetDirectArray().Add(n);
    }
}

// A UV set with the corners of each polygon spread over the unit square.
void addCornerUVs(QdxMesh* mesh, const char* name, const Polygons& polygons) {
    QdxLayerElementUV* uvs = mesh->CreateElementUV(name);
    uvs->SetMappingMode(QdxLayerElement::eByPolygonVertex);
    uvs->SetReferenceMode(QdxLayerElement::eDirect);
    for (const auto& polygon : polygons)
        for (size_t c = 0; c < polygon.size(); ++c) {
            const double a =
                6.283185307179586 * static_cast<double>(c) / static_cast<double>(polygon.size());
            uvs->GetDirectArray().Add(QdxVector2(0.5 + 0.5 * std::cos(a), 0.5 + 0.5 * std::sin(a)));
        }
}

// Box of size 2 around the origin.
std::vector<QdxVector4> boxPoints() {
    std::vector<QdxVector4> p;
    for (int i = 0; i < 8; ++i)
        p.emplace_back(i & 1 ? 1.0 : -1.0, i & 2 ? 1.0 : -1.0, i & 4 ? 1.0 : -1.0);
    return p;
}
const Polygons kBoxFaces = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4},
                            {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};

// Prism with n sides, radius r and height h along Y: top and bottom caps
// first, then the sides.
std::vector<QdxVector4> prismPoints(int n, double r, double h) {
    std::vector<QdxVector4> p;
    for (int ring = 0; ring < 2; ++ring)
        for (int i = 0; i < n; ++i) {
            const double a = 6.283185307179586 * i / n;
            p.emplace_back(r * std::cos(a), ring ? h / 2 : -h / 2, r * std::sin(a));
        }
    return p;
}
Polygons prismFaces(int n) {
    Polygons f;
    std::vector<int> top, bottom;
    for (int i = 0; i < n; ++i) {
        top.push_back(n + (n - 1 - i));
        bottom.push_back(i);
    }
    f.push_back(top);
    f.push_back(bottom);
    for (int i = 0; i < n; ++i) {
        const int j = (i + 1) % n;
        f.push_back({i, j, n + j, n + i});
    }
    return f;
}

QdxFileTexture* makeTexture(QdxScene* scene, const std::string& dir, const char* file) {
    QdxFileTexture* texture = QdxFileTexture::Create(scene, file);
    texture->SetFileName((dir + "\\" + file).c_str());
    texture->SetRelativeFileName((std::string("textures/") + file).c_str());
    return texture;
}

QdxNode* makeNode(QdxScene* scene, QdxNode* parent, const char* name, QdxNodeAttribute* attribute,
                  const QdxDouble3& t, const QdxDouble3& r = QdxDouble3(0, 0, 0),
                  const QdxDouble3& s = QdxDouble3(1, 1, 1)) {
    QdxNode* node = QdxNode::Create(scene, name);
    parent->AddChild(node);
    if (attribute) node->SetNodeAttribute(attribute);
    node->LclTranslation.Set(t);
    node->LclRotation.Set(r);
    node->LclScaling.Set(s);
    return node;
}

// Cameras, lights and a skeleton in the room: a perspective camera aimed at
// the car with an up node, an orthographic camera looking down, one light of
// every kind (the volume light has no host counterpart) and a three-joint
// arm on the turntable.
void addCamerasLightsAndSkeleton(QdxScene* scene, QdxNode* showroom, QdxNode* car,
                                 QdxNode* turntable) {
    auto* lens = QdxCamera::Create(scene, "ShotCamera");
    lens->FocalLength.Set(35.0);
    lens->SetApertureMode(QdxCamera::eHorizontal);
    lens->SetApertureWidth(1.417);
    lens->SetApertureHeight(0.945);
    lens->SetNearPlane(5.0);
    lens->SetFarPlane(5000.0);
    lens->FocusDistance.Set(450.0);
    QdxNode* shot = makeNode(scene, showroom, "ShotCamera", lens, QdxDouble3(350, 160, 300));
    QdxNode* up = makeNode(scene, showroom, "ShotCameraUp", nullptr, QdxDouble3(350, 400, 300));
    shot->SetTarget(car);
    shot->SetTargetUp(up);

    auto* plan = QdxCamera::Create(scene, "PlanCamera");
    plan->ProjectionType.Set(QdxCamera::eOrthogonal);
    plan->OrthoZoom.Set(20.0);
    plan->SetNearPlane(1.0);
    plan->SetFarPlane(2000.0);
    makeNode(scene, showroom, "PlanCamera", plan, QdxDouble3(0, 600, 0), QdxDouble3(0, 0, -90));

    const struct {
        const char* name;
        QdxLight::EType type;
        QdxLight::EDecayType decay;
        QdxDouble3 position, rotation, colour;
    } lights[] = {
        {"Bulb", QdxLight::ePoint, QdxLight::eQuadratic, {0, 250, 0}, {0, 0, 0}, {1, 0.9, 0.8}},
        {"Sun", QdxLight::eDirectional, QdxLight::eNone, {0, 500, 0}, {-30, 20, 0}, {1, 1, 0.95}},
        {"Spot", QdxLight::eSpot, QdxLight::eLinear, {-200, 300, 0}, {0, 0, 40}, {1, 1, 1}},
        {"SoftBox", QdxLight::eArea, QdxLight::eQuadratic, {0, 280, 150}, {-60, 0, 0}, {1, 1, 1}},
        {"Globe", QdxLight::eArea, QdxLight::eNone, {150, 200, -150}, {0, 0, 0}, {0.9, 0.9, 1}},
        {"Haze", QdxLight::eVolume, QdxLight::eNone, {0, 100, 0}, {0, 0, 0}, {1, 1, 1}},
    };
    for (const auto& l : lights) {
        auto* light = QdxLight::Create(scene, l.name);
        light->LightType.Set(l.type);
        light->DecayType.Set(l.decay);
        light->Color.Set(l.colour);
        light->CastShadows.Set(l.type == QdxLight::eDirectional || l.type == QdxLight::eSpot);
        if (l.type == QdxLight::eSpot) {
            light->InnerAngle.Set(30.0);
            light->OuterAngle.Set(45.0);
        }
        if (std::string(l.name) == "Globe") light->AreaLightShape.Set(QdxLight::eSphere);
        const QdxDouble3 size =
            l.type == QdxLight::eArea ? QdxDouble3(60, 1, 40) : QdxDouble3(1, 1, 1);
        makeNode(scene, showroom, l.name, light, l.position, l.rotation, size);
    }

    QdxNode* parent = turntable;
    const char* joints[] = {"ArmRoot", "ArmElbow", "ArmWrist"};
    for (int i = 0; i < 3; ++i) {
        auto* bone = QdxSkeleton::Create(scene, joints[i]);
        bone->SetSkeletonType(i == 0 ? QdxSkeleton::eRoot : QdxSkeleton::eLimbNode);
        parent = makeNode(scene, parent, joints[i], bone,
                          i == 0 ? QdxDouble3(-80, 0, 80) : QdxDouble3(0, 30, 0),
                          QdxDouble3(0, 0, i == 0 ? 0 : 20));
    }
}

QdxProperty userProperty(QdxObject* object, const QdxDataType& type, const char* label) {
    QdxProperty p = QdxProperty::Create(object, type, label);
    p.ModifyFlag(QdxPropertyFlags::eUserDefined, true);
    return p;
}

// User data as a modelling tool leaves it: on the body node, its mesh and
// its material, one value of every kind, labels naming a set with "__", a
// "~" list; on the root the file information under a "_FileInfo" set, which
// an export writes back into the document information.
void addUserProperties(QdxNode* root, QdxNode* body, QdxSurfaceMaterial* paint) {
    userProperty(body, QdxStringDT, "Part__Number").Set(QdxString("BX-1000"));
    userProperty(body, QdxIntDT, "Part__Revision").Set(3);
    userProperty(body, QdxBoolDT, "Part__Released").Set(true);
    userProperty(body, QdxFloatDT, "Weight").Set(1250.5f);
    userProperty(body, QdxDoubleDT, "DragCoefficient").Set(0.29);
    userProperty(body, QdxStringDT, "Options").Set(QdxString("sunroof~towbar~2"));
    userProperty(body, QdxColor3DT, "Paint__Tint").Set(QdxDouble3(0.8, 0.1, 0.1));
    userProperty(body, QdxDouble4DT, "Paint__Mix").Set(QdxDouble4(0.5, 0.25, 0.25, 0));
    QdxProperty finish = userProperty(body, QdxEnumDT, "Paint__Finish");
    finish.AddEnumValue("Matt");
    finish.AddEnumValue("Gloss");
    finish.AddEnumValue("Metallic");
    finish.Set(2);
    QdxProperty markets = userProperty(body, QdxStringListDT, "Markets");
    markets.AddStringListItem("EU");
    markets.AddStringListItem("US");
    QdxDateTime built, inspected, shift;
    built.setDate(14, 2, 2026);
    built.setTime(8, 15, 0);
    inspected.setDate(20, 2, 2026);
    shift.setTime(6, 0, 0);
    userProperty(body, QdxDateTimeDT, "Audit__Built").Set(built);
    userProperty(body, QdxDateTimeDT, "Audit__Inspected").Set(inspected);
    userProperty(body, QdxDateTimeDT, "Audit__ShiftStart").Set(shift);
    if (QdxNodeAttribute* mesh = body->GetNodeAttribute())
        userProperty(mesh, QdxIntDT, "Polycount__Budget").Set(5000);
    userProperty(paint, QdxStringDT, "Supplier__Name").Set(QdxString("Coatings Ltd"));
    userProperty(paint, QdxStringDT, "Supplier__Code").Set(QdxString("RAL 3020"));
    userProperty(paint, QdxFloatDT, "Gloss").Set(0.85f);

    const std::pair<const char*, const char*> fileInfo[] = {
        {"showroom_FileInfo__OriginalApplicationVendor", "Sample Works"},
        {"showroom_FileInfo__OriginalApplicationName", "qdx_sample_generator"},
        {"showroom_FileInfo__OriginalApplicationVersion", "1.0"},
        {"showroom_FileInfo__Created", "2026-03-01T09:30:00"},
        {"showroom_FileInfo__Title", "Showroom"},
        {"showroom_FileInfo__Subject", "Sample scene"},
        {"showroom_FileInfo__Author", "Sample Works"},
    };
    for (const auto& [label, text] : fileInfo)
        userProperty(root, QdxStringDT, label).Set(QdxString(text));
}

// Surfaces, a polyline and a skinned arm beside the car: a tube periodic
// around its axis, a trimmed panel with two holes, a polyline of two strips,
// and a strip of quads bound to the scene's three-joint skeleton (or to a
// chain of its own when the scene has none), bent away from its bind pose.
void addSurfacesLinesAndSkin(QdxScene* scene, QdxNode* root) {
    auto* tube = QdxNurbsSurface::Create(scene, "TubeSurface");
    tube->SetOrder(4, 4);
    tube->InitControlPoints(6, QdxNurbsSurface::ePeriodic, 4, QdxNurbsSurface::eOpen);
    for (int j = 0; j < 4; ++j)
        for (int i = 0; i < 6; ++i) {
            const double a = i * 2 * M_PI / 6, r = 12 + 3 * (j % 2);
            tube->SetControlPointAt(QdxVector4(r * std::cos(a), j * 10.0, r * std::sin(a)),
                                    j * 6 + i);
        }
    for (int k = 0; k < tube->GetUKnotCount(); ++k)
        tube->GetUKnotVector()[k] = k;
    for (int k = 0; k < tube->GetVKnotCount(); ++k)
        tube->GetVKnotVector()[k] = k < 4 ? 0.0 : 1.0;
    makeNode(scene, root, "Tube", tube, QdxDouble3(-180, 0, 120));

    auto* panel = QdxNurbsSurface::Create(scene, "PanelSurface");
    panel->SetOrder(2, 2);
    panel->InitControlPoints(2, QdxNurbsSurface::eOpen, 2, QdxNurbsSurface::eOpen);
    for (int i = 0; i < 4; ++i)
        panel->SetControlPointAt(QdxVector4((i % 2) * 60.0, (i / 2) * 40.0, 0), i);
    for (double* knots : {panel->GetUKnotVector(), panel->GetVKnotVector()})
        for (int k = 0; k < 4; ++k)
            knots[k] = k < 2 ? 0.0 : 1.0;
    auto* trimmed = QdxTrimNurbsSurface::Create(scene, "Panel");
    trimmed->SetNurbsSurface(panel);
    trimmed->BeginTrimRegion();
    for (double cu : {0.3, 0.7}) {
        // Each hole: a periodic circle-like arc closed by a straight segment.
        auto* boundary = QdxBoundary::Create(scene, "");
        auto* arc = QdxNurbsCurve::Create(scene, "");
        arc->SetDimension(QdxNurbsCurve::e2D);
        arc->SetOrder(3);
        arc->InitControlPoints(6, QdxNurbsCurve::ePeriodic);
        for (int i = 0; i < 6; ++i)
            arc->SetControlPointAt(QdxVector4(cu + 0.12 * std::cos(i * M_PI / 3),
                                              0.5 + 0.2 * std::sin(i * M_PI / 3), 0, 1),
                                   i);
        for (int k = 0; k < arc->GetKnotCount(); ++k)
            arc->GetKnotVector()[k] = k;
        boundary->AddCurve(arc);
        trimmed->AddBoundary(boundary);
    }
    trimmed->EndTrimRegion();
    makeNode(scene, root, "TrimmedPanel", trimmed, QdxDouble3(150, 0, 150));

    auto* line = QdxLine::Create(scene, "RopeLine");
    line->InitControlPoints(6);
    for (int i = 0; i < 6; ++i)
        line->SetControlPointAt(QdxVector4(i * 20.0, 90 + 10 * (i % 2), 0), i);
    for (int index : {0, 1, 2, 3, 3, 4, 5})
        line->AddPointIndex(index);
    line->AddEndPoint(3);
    line->AddEndPoint(6);
    makeNode(scene, root, "Rope", line, QdxDouble3(-60, 0, -150));

    // The skeleton: the first root joint's chain, else a chain of our own.
    std::vector<QdxNode*> chain;
    for (int i = 0; i < scene->GetNodeCount() && chain.empty(); ++i)
        if (auto* bone = scene->GetNode(i)->GetSkeleton();
            bone && bone->GetSkeletonType() == QdxSkeleton::eRoot)
            for (QdxNode* n = scene->GetNode(i); n && chain.size() < 3;
                 n = n->GetChildCount() > 0 ? n->GetChild(0) : nullptr)
                chain.push_back(n);
    if (chain.size() < 3) {
        chain.clear();
        QdxNode* parent = root;
        for (int i = 0; i < 3; ++i) {
            auto* bone = QdxSkeleton::Create(scene, "");
            bone->SetSkeletonType(i == 0 ? QdxSkeleton::eRoot : QdxSkeleton::eLimbNode);
            const std::string name = "ArmJoint" + std::to_string(i);
            parent = makeNode(scene, parent, name.c_str(), bone,
                              QdxDouble3(i == 0 ? 180 : 30, i == 0 ? 20 : 0, i == 0 ? -120 : 0));
            chain.push_back(parent);
        }
    }
    std::vector<QdxVector4> points;
    Polygons quads;
    const QdxAMatrix start = chain[0]->EvaluateGlobalTransform();
    for (int i = 0; i <= 12; ++i)
        for (double z : {-4.0, 4.0}) {
            const QdxVector4 local(i * 6.0, 0, z);
            points.push_back(start.MultT(local));
        }
    for (int i = 1; i <= 12; ++i)
        quads.push_back({2 * i - 2, 2 * i, 2 * i + 1, 2 * i - 1});
    QdxMesh* armMesh = makeMesh(scene, "ArmMesh", points, quads);
    QdxNode* arm = makeNode(scene, root, "SkinnedArm", armMesh, QdxDouble3(0, 0, 0));
    auto* skin = QdxSkin::Create(scene, "ArmSkin");
    for (int j = 0; j < 3; ++j) {
        auto* cluster = QdxCluster::Create(scene, "");
        cluster->SetLink(chain[static_cast<size_t>(j)]);
        cluster->SetTransformMatrix(arm->EvaluateGlobalTransform());
        cluster->SetTransformLinkMatrix(chain[static_cast<size_t>(j)]->EvaluateGlobalTransform());
        for (int p = 0; p < static_cast<int>(points.size()); ++p) {
            const double w = std::max(0.0, 1.0 - std::abs((p / 2) / 6.0 - j));
            if (w > 0) cluster->AddControlPointIndex(p, w);
        }
        skin->AddCluster(cluster);
    }
    armMesh->AddDeformer(skin);
    chain[1]->LclRotation.Set(QdxDouble3(0, 0, 30));
    chain[2]->LclRotation.Set(QdxDouble3(0, 0, 25));
}

// Two vertex-cached grids behind the car (see SampleCaches.h): a flag whose
// cache is a point cache and a pool surface whose cache is a Tove cache.
void addCachedGrids(QdxScene* scene, QdxNode* root) {
    QdxSurfacePhong* cloth = QdxSurfacePhong::Create(scene, "Cloth");
    cloth->Diffuse.Set(QdxDouble3(0.2, 0.3, 0.8));
    cloth->DiffuseFactor.Set(1.0);
    const Polygons polygons = gridPolygons();
    const struct {
        const char* name;
        std::vector<QdxVector4> points;
        const char* file;
        QdxVertexCacheDeformer::ECacheFormat format;
        QdxDouble3 at;
    } grids[] = {
        {"Flag", flagPoints(0.0), kFlagCacheFile, QdxVertexCacheDeformer::ePC2,
         QdxDouble3(-40, 120, -180)},
        {"Pool", poolPoints(0.0), kPoolCacheFile, QdxVertexCacheDeformer::eToveCache,
         QdxDouble3(160, 2, -150)},
    };
    for (const auto& g : grids) {
        QdxMesh* mesh = makeMesh(scene, g.name, g.points, polygons);
        addCornerNormals(mesh, g.points, polygons);
        auto* cache =
            QdxVertexCacheDeformer::Create(scene, (std::string(g.name) + "Cache").c_str());
        cache->SetCacheFile(g.file, g.format);
        mesh->AddDeformer(cache);
        makeNode(scene, root, g.name, mesh, g.at)->AddMaterial(cloth);
    }
}

} // namespace

// Keys of one curve: (seconds, value) pairs, all of one interpolation.
void addKeys(QdxAnimCurve* curve, const std::vector<std::pair<double, double>>& keys,
             QdxAnimCurveDef::EInterpolationType type) {
    if (!curve) return;
    for (const auto& [seconds, value] : keys) {
        QdxTime time;
        time.SetSecondDouble(seconds);
        curve->KeySet(curve->KeyAdd(time), time, value, type);
    }
}

// A showroom clip: the turntable turns once, the car drives onto it with
// eased (weighted cubic) keys, the shot camera zooms and shifts its film,
// the spot light widens, the hidden helper blinks; a second layer adds a
// bounce to the car and a second take turns the turntable back.
void addAnimation(QdxScene* scene) {
    using Def = QdxAnimCurveDef;
    QdxNode* root = scene->GetRootNode();
    QdxNode* turntable = root->FindChild("Turntable", true);
    QdxNode* car = root->FindChild("Car", true);
    QdxNode* camera = root->FindChild("ShotCamera", true);
    QdxNode* spot = root->FindChild("Spot", true);
    QdxNode* helper = root->FindChild("HiddenHelper", true);
    if (!turntable || !car || !camera || !spot || !helper) return;

    QdxAnimStack* show = QdxAnimStack::Create(scene, "Show");
    QdxAnimLayer* base = QdxAnimLayer::Create(scene, "BaseLayer");
    QdxAnimLayer* bounce = QdxAnimLayer::Create(scene, "Bounce");
    bounce->BlendMode.Set(QdxAnimLayer::eBlendAdditive);
    bounce->Weight.Set(50.0);
    show->AddMember(base);
    show->AddMember(bounce);

    addKeys(turntable->LclRotation.GetCurve(base, "Y", true), {{0, 0}, {4, 360}},
            Def::eInterpolationLinear);

    QdxAnimCurve* drive = car->LclTranslation.GetCurve(base, "X", true);
    addKeys(drive, {{0, -300}, {2, 0}, {4, 0}}, Def::eInterpolationCubic);
    // Slow in and out: flat ends, long weighted handles.
    drive->KeySet(0, drive->KeyGetTime(0), -300, Def::eInterpolationCubic, Def::eTangentUser, 0, 0,
                  0.6, 0.6);
    drive->KeySet(1, drive->KeyGetTime(1), 0, Def::eInterpolationCubic, Def::eTangentUser, 0, 0,
                  0.5, 0.5);
    addKeys(car->LclTranslation.GetCurve(bounce, "Y", true), {{0, 0}, {1, 10}, {2, 0}},
            Def::eInterpolationCubic);

    auto* lens = camera->GetCamera();
    addKeys(lens->FocalLength.GetCurve(base, nullptr, true), {{0, 35}, {4, 85}},
            Def::eInterpolationLinear);
    addKeys(lens->FilmOffsetX.GetCurve(base, nullptr, true), {{0, 0}, {4, 0.1}},
            Def::eInterpolationLinear);
    addKeys(lens->FilmOffsetY.GetCurve(base, nullptr, true), {{0, 0}, {4, -0.05}},
            Def::eInterpolationLinear);

    auto* light = spot->GetLight();
    addKeys(light->InnerAngle.GetCurve(base, nullptr, true), {{0, 30}, {4, 50}},
            Def::eInterpolationLinear);
    addKeys(light->OuterAngle.GetCurve(base, nullptr, true), {{0, 45}, {4, 70}},
            Def::eInterpolationCubic);

    addKeys(helper->Visibility.GetCurve(base, nullptr, true), {{0, 0}, {1, 1}, {3, 0}},
            Def::eInterpolationConstant);

    QdxAnimStack* back = QdxAnimStack::Create(scene, "TurnBack");
    QdxAnimLayer* backLayer = QdxAnimLayer::Create(scene, "BaseLayer");
    back->AddMember(backLayer);
    addKeys(turntable->LclRotation.GetCurve(backLayer, "Y", true), {{0, 360}, {2, 0}},
            Def::eInterpolationLinear);
    scene->SetCurrentAnimationStack(show);
}

void buildShowroom(QdxScene* scene, const std::string& textureDir) {
    QdxGlobalSettings& globals = scene->GetGlobalSettings();
    globals.SetAxisSystem(QdxAxisSystem::ToveYUp);
    globals.SetSystemUnit(QdxSystemUnit::cm);
    globals.SetTimeMode(QdxTime::eFrames24);
    globals.SetTimelineDefaultTimeSpan(
        QdxTimeSpan(QdxTime(0), QdxTime(5 * QdxTime::kTicksPerSecond)));

    QdxDocumentInfo* info = QdxDocumentInfo::Create(scene, "Info");
    info->Original_ApplicationVendor.Set("Sample Works");
    info->Original_ApplicationName.Set("qdx_sample_generator");
    info->Original_ApplicationVersion.Set("1.0");
    info->Original_DateTime_GMT.Set(QdxDateTime(1, 3, 2026, 9, 30, 0));
    info->LastSaved_ApplicationVendor.Set("Sample Works");
    info->LastSaved_ApplicationName.Set("qdx_sample_generator");
    info->LastSaved_ApplicationVersion.Set("1.0");
    info->LastSaved_DateTime_GMT.Set(QdxDateTime(1, 3, 2026, 9, 30, 0));
    info->mTitle = "Showroom";
    info->mSubject = "Sample scene";
    info->mAuthor = "Sample Works";
    scene->SetDocumentInfo(info);

    // Materials and textures.
    QdxSurfacePhong* paint = QdxSurfacePhong::Create(scene, "Paint");
    paint->Diffuse.Set(QdxDouble3(0.8, 0.1, 0.1));
    paint->DiffuseFactor.Set(1.0);
    paint->Ambient.Set(QdxDouble3(0.1, 0.1, 0.1));
    paint->AmbientFactor.Set(1.0);
    paint->Specular.Set(QdxDouble3(1.0, 1.0, 1.0));
    paint->SpecularFactor.Set(0.5);
    paint->Shininess.Set(20.0);
    paint->BumpFactor.Set(0.3);
    paint->Diffuse.ConnectSrcObject(makeTexture(scene, textureDir, "paint.png"));
    paint->Bump.ConnectSrcObject(makeTexture(scene, textureDir, "bumps.png"));

    QdxSurfacePhong* chrome = QdxSurfacePhong::Create(scene, "Chrome");
    chrome->Diffuse.Set(QdxDouble3(0.7, 0.7, 0.75));
    chrome->DiffuseFactor.Set(1.0);
    chrome->Specular.Set(QdxDouble3(1.0, 1.0, 1.0));
    chrome->SpecularFactor.Set(1.0);
    chrome->Shininess.Set(80.0);

    QdxSurfaceLambert* wood = QdxSurfaceLambert::Create(scene, "Wood");
    wood->Diffuse.Set(QdxDouble3(1.0, 1.0, 1.0));
    wood->DiffuseFactor.Set(0.9);
    QdxFileTexture* woodTexture = makeTexture(scene, textureDir, "wood.png");
    woodTexture->SetTranslation(0.25, 0.0);
    wood->Diffuse.ConnectSrcObject(woodTexture);

    QdxSurfaceLambert* floor = QdxSurfaceLambert::Create(scene, "Floor");
    floor->Diffuse.Set(QdxDouble3(1.0, 1.0, 1.0));
    floor->DiffuseFactor.Set(1.0);
    QdxFileTexture* floorTexture = makeTexture(scene, textureDir, "floor.png");
    floorTexture->SetScale(4.0, 4.0);
    floorTexture->SetWrapMode(QdxTexture::eClamp, QdxTexture::eRepeat);
    floor->Diffuse.ConnectSrcObject(floorTexture);

    QdxSurfaceLambert* rubber = QdxSurfaceLambert::Create(scene, "Rubber");
    rubber->Diffuse.Set(QdxDouble3(0.05, 0.05, 0.05));
    rubber->DiffuseFactor.Set(1.0);

    QdxSurfaceLambert* lamp = QdxSurfaceLambert::Create(scene, "Lamp");
    lamp->Emissive.Set(QdxDouble3(2.0, 1.0, 0.0));
    lamp->EmissiveFactor.Set(1.0);

    // Meshes.
    const std::vector<QdxVector4> box = boxPoints();
    QdxMesh* body = makeMesh(scene, "BodyMesh", box, kBoxFaces);
    addCornerNormals(body, box, kBoxFaces);
    addCornerUVs(body, "map1", kBoxFaces);
    {
        // Light map: the six faces side by side, shared corners indexed.
        QdxLayerElementUV* lightmap = body->CreateElementUV("Lightmap UV Set");
        lightmap->SetMappingMode(QdxLayerElement::eByPolygonVertex);
        lightmap->SetReferenceMode(QdxLayerElement::eIndexToDirect);
        for (int i = 0; i <= 6; ++i) {
            lightmap->GetDirectArray().Add(QdxVector2(i / 6.0, 0.0));
            lightmap->GetDirectArray().Add(QdxVector2(i / 6.0, 1.0));
        }
        for (int f = 0; f < 6; ++f)
            for (int k : {2 * f, 2 * f + 1, 2 * f + 3, 2 * f + 2})
                lightmap->GetIndexArray().Add(k);
        QdxLayerElementVertexColor* colors = body->CreateElementVertexColor();
        colors->SetMappingMode(QdxLayerElement::eByControlPoint);
        for (int cp = 0; cp < 8; ++cp)
            colors->GetDirectArray().Add(
                QdxColor(cp & 1 ? 1.0 : 0.2, cp & 2 ? 1.0 : 0.2, cp & 4 ? 1.0 : 0.2, 1.0));
    }

    const std::vector<QdxVector4> disc = prismPoints(12, 1.0, 0.1);
    const Polygons discFaces = prismFaces(12);
    QdxMesh* turntable = makeMesh(scene, "TurntableMesh", disc, discFaces);
    addCornerNormals(turntable, disc, discFaces);
    addCornerUVs(turntable, "map1", discFaces);
    {
        QdxLayerElementMaterial* materials = turntable->CreateElementMaterial();
        materials->SetMappingMode(QdxLayerElement::eByPolygon);
        materials->SetReferenceMode(QdxLayerElement::eIndexToDirect);
        for (size_t p = 0; p < discFaces.size(); ++p)
            materials->GetIndexArray().Add(p < 2 ? 0 : 1);
    }

    const std::vector<QdxVector4> tyre = prismPoints(16, 1.0, 0.6);
    const Polygons tyreFaces = prismFaces(16);
    QdxMesh* tyreMesh = makeMesh(scene, "TyreMesh", tyre, tyreFaces);
    addCornerNormals(tyreMesh, tyre, tyreFaces);
    addCornerUVs(tyreMesh, "map1", tyreFaces);

    // Floor: UVs and normals per control point, so one vertex per point.
    std::vector<QdxVector4> grid;
    Polygons cells;
    const int n = 4;
    for (int z = 0; z <= n; ++z)
        for (int x = 0; x <= n; ++x)
            grid.emplace_back(-1.0 + 2.0 * x / n, 0.0, -1.0 + 2.0 * z / n);
    for (int z = 0; z < n; ++z)
        for (int x = 0; x < n; ++x) {
            const int a = z * (n + 1) + x;
            cells.push_back({a, a + n + 1, a + n + 2, a + 1});
        }
    QdxMesh* floorMesh = makeMesh(scene, "FloorMesh", grid, cells);
    {
        QdxLayerElementNormal* normals = floorMesh->CreateElementNormal();
        normals->SetMappingMode(QdxLayerElement::eByControlPoint);
        QdxLayerElementUV* uvs = floorMesh->CreateElementUV("map1");
        uvs->SetMappingMode(QdxLayerElement::eByControlPoint);
        uvs->SetReferenceMode(QdxLayerElement::eDirect);
        for (const QdxVector4& p : grid) {
            normals->GetDirectArray().Add(QdxVector4(0, 1, 0, 0));
            uvs->GetDirectArray().Add(QdxVector2((p[0] + 1.0) / 2.0, (p[2] + 1.0) / 2.0));
        }
    }

    const std::vector<QdxVector4> tetra = {{0, 1, 0}, {-1, -1, 1}, {1, -1, 1}, {0, -1, -1}};
    const Polygons tetraFaces = {{0, 1, 2}, {0, 2, 3}, {0, 3, 1}, {1, 3, 2}};
    QdxMesh* marker = makeMesh(scene, "MarkerMesh", tetra, tetraFaces);
    addCornerNormals(marker, tetra, tetraFaces);

    // Hierarchy (centimetres, Y up).
    QdxNode* root = scene->GetRootNode();
    QdxNode* showroom =
        makeNode(scene, root, "Showroom", nullptr, QdxDouble3(0, 0, 0), QdxDouble3(0, 15, 0));
    showroom->SetRotationOrder(QdxNode::eSourcePivot, eEulerZXY);
    showroom->SetRotationPivot(QdxNode::eSourcePivot, QdxVector4(50, 0, 0));
    showroom->SetScalingPivot(QdxNode::eSourcePivot, QdxVector4(0, 10, 0));

    QdxNode* floorNode = makeNode(scene, showroom, "Floor", floorMesh, QdxDouble3(0, 0, 0),
                                  QdxDouble3(0, 0, 0), QdxDouble3(400, 1, 400));
    floorNode->AddMaterial(floor);

    QdxNode* turntableNode = makeNode(scene, showroom, "Turntable", turntable, QdxDouble3(0, 5, 0),
                                      QdxDouble3(0, 30, 0), QdxDouble3(1.5, 1.5, 1.5));
    turntableNode->SetRotationOrder(QdxNode::eSourcePivot, eEulerYZX);
    turntableNode->AddMaterial(chrome);
    turntableNode->AddMaterial(wood);

    QdxNode* car =
        makeNode(scene, turntableNode, "Car", nullptr, QdxDouble3(0, 25, 0), QdxDouble3(0, -30, 0));
    car->SetPreRotation(QdxNode::eSourcePivot, QdxVector4(0, 10, 0));
    car->SetPostRotation(QdxNode::eSourcePivot, QdxVector4(5, 0, 0));
    car->SetRotationOffset(QdxNode::eSourcePivot, QdxVector4(2, 0, 0));
    car->SetRotationPivot(QdxNode::eSourcePivot, QdxVector4(10, 0, 5));
    car->SetRotationActive(true);

    QdxNode* bodyNode = makeNode(scene, car, "Body", body, QdxDouble3(0, 30, 0),
                                 QdxDouble3(0, 0, 0), QdxDouble3(100, 30, 45));
    bodyNode->SetGeometricTranslation(QdxNode::eSourcePivot, QdxVector4(0, 0.2, 0));
    bodyNode->AddMaterial(paint);

    const struct {
        const char* hub;
        const char* tyre;
        double x, z;
    } wheels[] = {{"Hub_FL", "Tyre_FL", 70, 40},
                  {"Hub_FR", "Tyre_FR", 70, -40},
                  {"Hub_RL", "Tyre_RL", -70, 40},
                  {"Hub_RR", "Tyre_RR", -70, -40}};
    for (const auto& w : wheels) {
        QdxNode* hub = makeNode(scene, car, w.hub, nullptr, QdxDouble3(w.x, 0, w.z));
        QdxNode* t = makeNode(scene, hub, w.tyre, tyreMesh, QdxDouble3(0, 0, 0),
                              QdxDouble3(90, 0, 0), QdxDouble3(25, 10, 25));
        t->AddMaterial(rubber);
    }
    QdxNode* spare = makeNode(scene, turntableNode, "SpareTyre", tyreMesh, QdxDouble3(0, 10, -90),
                              QdxDouble3(0, 0, 0), QdxDouble3(25, 10, 25));
    spare->AddMaterial(rubber);

    QdxNode* helper = makeNode(scene, root, "HiddenHelper", marker, QdxDouble3(0, 150, 0),
                               QdxDouble3(0, 0, 0), QdxDouble3(5, 5, 5));
    helper->AddMaterial(lamp);
    helper->SetVisibility(false);

    addCamerasLightsAndSkeleton(scene, showroom, car, turntableNode);
    addUserProperties(root, bodyNode, paint);
    addSurfacesLinesAndSkin(scene, root);
    addCachedGrids(scene, root);
    addAnimation(scene);
}

} // namespace samples
