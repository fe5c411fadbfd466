#include "scene_builder.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <unistd.h>

namespace qdxtest {

using namespace qdxsdk;

namespace {
QdxMesh* BuildMesh(QdxScene* scene) {
    QdxMesh* mesh = QdxMesh::Create(scene, "cubeMesh");
    mesh->InitControlPoints(5);
    for (int i = 0; i < 5; ++i)
        mesh->SetControlPointAt(QdxVector4(i, i * 0.5, -i, 1.0), i);
    QdxLayerElementMaterial* mat = mesh->CreateElementMaterial();
    mat->SetMappingMode(QdxLayerElement::eByPolygon);
    QdxLayerElementUV* uv = mesh->CreateElementUV("map1");
    uv->SetMappingMode(QdxLayerElement::eByPolygonVertex);
    uv->SetReferenceMode(QdxLayerElement::eIndexToDirect);
    for (int i = 0; i < 4; ++i)
        uv->GetDirectArray().Add(QdxVector2(i * 0.25, 1 - i * 0.25));
    int quad[] = {0, 1, 2, 3}, tri[] = {1, 4, 2};
    mesh->BeginPolygon(0);
    for (int c = 0; c < 4; ++c)
        mesh->AddPolygon(quad[c], c);
    mesh->EndPolygon();
    mesh->BeginPolygon(1);
    for (int c = 0; c < 3; ++c)
        mesh->AddPolygon(tri[c], c == 1 ? -1 : c);
    mesh->EndPolygon();
    uv->GetIndexArray().Add(-1); // the triangle's second corner has no UV
    QdxLayerElementNormal* n = mesh->CreateElementNormal();
    n->SetMappingMode(QdxLayerElement::eByPolygonVertex);
    for (int i = 0; i < 7; ++i)
        n->GetDirectArray().Add(QdxVector4(0, 1, 0, 0));
    QdxLayerElementVertexColor* col = mesh->CreateElementVertexColor();
    col->SetMappingMode(QdxLayerElement::eByControlPoint);
    for (int i = 0; i < 5; ++i)
        col->GetDirectArray().Add(QdxColor(0.1 * i, 0.2, 0.3, 1.0));
    QdxLayerElementUV* light = mesh->CreateElementUV("Lightmap UV Set");
    light->SetMappingMode(QdxLayerElement::eByControlPoint);
    for (int i = 0; i < 5; ++i)
        light->GetDirectArray().Add(QdxVector2(i, -i));
    return mesh;
}

void AddUserProperties(QdxObject* o) {
    auto user = [&](const QdxDataType& t, const char* name) {
        QdxProperty p = QdxProperty::Create(o, t, name, name);
        p.ModifyFlag(QdxPropertyFlags::eUserDefined, true);
        return p;
    };
    user(QdxBoolDT, "Paint__Glossy").Set(true);
    user(QdxIntDT, "Count").Set(-7);
    user(QdxFloatDT, "Ratio").Set(0.1f);
    user(QdxDoubleDT, "Weight").Set(std::numeric_limits<double>::quiet_NaN());
    user(QdxDouble2DT, "Pair").Set(QdxDouble2(-0.0, 5e-324));
    user(QdxDouble3DT, "Big").Set(QdxDouble3(1e308, -std::numeric_limits<double>::infinity(), 0.1));
    user(QdxDouble4DT, "Quad").Set(QdxDouble4(1, 2, 3, 4));
    user(QdxColor3DT, "Tint").Set(QdxDouble3(0.25, 0.5, 0.75));
    user(QdxColor4DT, "TintA").Set(QdxDouble4(0.25, 0.5, 0.75, 0.5));
    QdxAMatrix m(QdxVector4(1, 2, 3), QdxVector4(10, 20, 30), QdxVector4(1, 2, 3));
    user(QdxDouble4x4DT, "Matrix").Set(m);
    user(QdxStringDT, "Label")
        .Set(QdxString(std::string("quote\" slash\\ tab\t nul\x01 \xff\xfe bytes")));
    user(QdxStringDT, "Unicode").Set(QdxString("gr\xc3\xbc\xc3\x9f"));
    QdxProperty list = user(QdxStringListDT, "Tags");
    list.AddStringListItem("a");
    list.AddStringListItem("b~c");
    user(QdxDateTimeDT, "When").Set(QdxDateTime(24, 12, 2025, 23, 59, 58, 7));
    QdxDateTime day, clock;
    day.setDate(29, 2, 2024);
    clock.setTime(0, 0, 0);
    user(QdxDateTimeDT, "Day").Set(day);
    user(QdxDateTimeDT, "Clock").Set(clock);
    user(QdxLongLongDT, "Huge").Set(-9000000000000000000LL);
    QdxProperty e = user(QdxEnumDT, "Choice");
    e.AddEnumValue("zero");
    e.AddEnumValue("one");
    e.Set(1);
    user(QdxTimeDT, "At").Set(QdxTime(-141120000LL * 3));
    user(QdxReferenceDT, "Ref");
}

void AddAnimation(QdxScene* scene, QdxNode* node) {
    QdxAnimStack* stack = QdxAnimStack::Create(scene, "Take 001");
    stack->SetLocalTimeSpan(QdxTimeSpan(QdxTime(0), QdxTime(QdxTime::kTicksPerSecond)));
    QdxAnimLayer* base = QdxAnimLayer::Create(scene, "BaseLayer");
    QdxAnimLayer* second = QdxAnimLayer::Create(scene, "L2");
    second->Weight.Set(50.0);
    stack->AddMember(base);
    stack->AddMember(second);
    QdxAnimCurve* tx = node->LclTranslation.GetCurve(base, "X", true);
    QdxTime t;
    int k = 0;
    for (int f = 0; f < 4; ++f) {
        t.SetFrame(f * 10, QdxTime::eFrames30);
        k = tx->KeyAdd(t);
        tx->KeySet(k, t, f * 1.5,
                   f == 0   ? QdxAnimCurveDef::eInterpolationConstant
                   : f == 1 ? QdxAnimCurveDef::eInterpolationLinear
                            : QdxAnimCurveDef::eInterpolationCubic,
                   QdxAnimCurveDef::eTangentUser, 0.5 * f, -0.25 * f, 0.2, 0.4);
    }
    tx->KeySetConstantMode(0, QdxAnimCurveDef::eConstantNext);
    tx->SetPostExtrapolation(QdxAnimCurveDef::eMirrorRepetition);
    QdxAnimCurve* ry = node->LclRotation.GetCurve(second, "Y", true);
    t.SetFrame(5, QdxTime::eFrames30);
    ry->KeySet(ry->KeyAdd(t), t, 45.0, QdxAnimCurveDef::eInterpolationLinear);
    QdxAnimStack* other = QdxAnimStack::Create(scene, "Take 002");
    QdxAnimLayer* l = QdxAnimLayer::Create(scene, "Base");
    other->AddMember(l);
    node->Visibility.GetCurve(l, "X", true)->KeyAdd(QdxTime(0));
}
} // namespace

void BuildEverythingScene(QdxScene* scene) {
    QdxGlobalSettings& gs = scene->GetGlobalSettings();
    gs.SetAxisSystem(QdxAxisSystem::ToveZUp);
    gs.SetSystemUnit(QdxSystemUnit::Inch);
    gs.SetOriginalSystemUnit(QdxSystemUnit::m);
    gs.SetOriginalUpAxis(QdxAxisSystem::ToveZUp);
    gs.SetTimeMode(QdxTime::eFrames24);
    gs.SetTimelineDefaultTimeSpan(QdxTimeSpan(QdxTime(-10), QdxTime(QdxTime::kTicksPerSecond * 5)));
    QdxDocumentInfo* info = QdxDocumentInfo::Create(scene, "info");
    info->mTitle = "All classes";
    info->mAuthor = "Builder";
    info->mComment = "line one\nline two";
    info->Original_ApplicationVendor.Set(QdxString("Vendor"));
    info->Original_DateTime_GMT.Set(QdxDateTime(1, 2, 2020, 3, 4, 5, 6));
    info->LastSaved_DateTime_GMT.Set(QdxDateTime::currentDateTimeGMT());
    scene->SetDocumentInfo(info);

    QdxNode* root = scene->GetRootNode();
    QdxNode* meshNode = QdxNode::Create(scene, "Body%1");
    root->AddChild(meshNode);
    QdxMesh* mesh = BuildMesh(scene);
    meshNode->SetNodeAttribute(mesh);
    meshNode->LclTranslation.Set(QdxDouble3(1, 2, 3));
    meshNode->SetPreRotation(QdxNode::eSourcePivot, QdxVector4(10, 0, 0));
    meshNode->SetRotationPivot(QdxNode::eSourcePivot, QdxVector4(0.5, 0, 0));
    meshNode->SetRotationOrder(QdxNode::eDestinationPivot, eEulerZXY);
    meshNode->SetTransformationInheritType(eInheritRrSs);
    AddUserProperties(meshNode);

    QdxSurfacePhong* phong = QdxSurfacePhong::Create(scene, "Red");
    phong->Diffuse.Set(QdxDouble3(1, 0, 0));
    QdxFileTexture* tex = QdxFileTexture::Create(scene, "wood");
    tex->SetFileName("C:/maps/wood/oak.png");
    tex->SetScale(2, 2);
    tex->SetWrapMode(QdxTexture::eClamp, QdxTexture::eRepeat);
    phong->Diffuse.ConnectSrcObject(tex);
    QdxSurfaceLambert* lambert = QdxSurfaceLambert::Create(scene, "Matte");
    QdxLayeredTexture* layered = QdxLayeredTexture::Create(scene, "stack");
    QdxFileTexture* t2 = QdxFileTexture::Create(scene, "dirt");
    t2->SetFileName("dirt.jpg");
    layered->ConnectSrcObject(t2);
    layered->SetTextureBlendMode(0, QdxTexture::eModulate);
    lambert->Diffuse.ConnectSrcObject(layered);
    meshNode->AddMaterial(phong);
    meshNode->AddMaterial(lambert);

    QdxNode* joint = QdxNode::Create(scene, "joint");
    root->AddChild(joint);
    QdxSkeleton* skel = QdxSkeleton::Create(scene, "jointAttr");
    skel->SetSkeletonType(QdxSkeleton::eLimbNode);
    joint->SetNodeAttribute(skel);
    QdxSkin* skin = QdxSkin::Create(scene, "skin");
    QdxCluster* cluster = QdxCluster::Create(scene, "cluster");
    cluster->SetLink(joint);
    cluster->AddControlPointIndex(0, 1.0);
    cluster->AddControlPointIndex(3, 0.25);
    cluster->SetTransformLinkMatrix(
        QdxAMatrix(QdxVector4(5, 0, 0), QdxVector4(0, 0, 0), QdxVector4(1, 1, 1)));
    skin->AddCluster(cluster);
    mesh->AddDeformer(skin);
    QdxVertexCacheDeformer* cache = QdxVertexCacheDeformer::Create(scene, "cache");
    cache->CacheFileName.Set(QdxString("anim.pc2"));
    cache->CacheFileFormat.Set(QdxVertexCacheDeformer::eToveCache);
    mesh->AddDeformer(cache);

    QdxNode* camNode = QdxNode::Create(scene, "camera");
    root->AddChild(camNode);
    QdxCamera* cam = QdxCamera::Create(scene, "cameraShape");
    cam->ProjectionType.Set(QdxCamera::eOrthogonal);
    camNode->SetNodeAttribute(cam);
    camNode->SetTarget(joint);
    camNode->SetTargetUp(meshNode);

    QdxNode* lightNode = QdxNode::Create(scene, "light");
    camNode->AddChild(lightNode);
    QdxLight* light = QdxLight::Create(scene, "spot");
    light->LightType.Set(QdxLight::eSpot);
    light->InnerAngle.Set(30.0);
    lightNode->SetNodeAttribute(light);
    lightNode->SetVisibility(false);

    QdxNode* surfNode = QdxNode::Create(scene, "surface");
    root->AddChild(surfNode);
    QdxNurbsSurface* surf = QdxNurbsSurface::Create(scene, "surfaceShape");
    surf->SetOrder(4, 4);
    surf->InitControlPoints(6, QdxNurbsSurface::ePeriodic, 4, QdxNurbsSurface::eOpen);
    for (int i = 0; i < surf->GetUKnotCount(); ++i)
        surf->GetUKnotVector()[i] = i;
    for (int i = 0; i < surf->GetVKnotCount(); ++i)
        surf->GetVKnotVector()[i] = i * 0.5;
    surfNode->SetNodeAttribute(surf);

    QdxNode* trimNode = QdxNode::Create(scene, "trimmed");
    root->AddChild(trimNode);
    QdxTrimNurbsSurface* trim = QdxTrimNurbsSurface::Create(scene, "trimShape");
    QdxNurbsSurface* inner = QdxNurbsSurface::Create(scene, "inner");
    inner->SetOrder(2, 2);
    inner->InitControlPoints(2, QdxNurbsSurface::eOpen, 2, QdxNurbsSurface::eOpen);
    trim->SetNurbsSurface(inner);
    for (int r = 0; r < 2; ++r) {
        trim->BeginTrimRegion();
        QdxBoundary* b = QdxBoundary::Create(scene, "boundary");
        for (int c = 0; c < 2; ++c) {
            QdxNurbsCurve* curve = QdxNurbsCurve::Create(scene, "trimCurve");
            curve->SetDimension(QdxNurbsCurve::e2D);
            curve->SetOrder(3);
            curve->InitControlPoints(4, QdxNurbsCurve::eOpen);
            b->AddCurve(curve);
        }
        trim->AddBoundary(b);
        trim->EndTrimRegion();
    }
    trimNode->SetNodeAttribute(trim);

    QdxNode* lineNode = QdxNode::Create(scene, "line");
    root->AddChild(lineNode);
    QdxLine* line = QdxLine::Create(scene, "lineShape");
    line->InitControlPoints(6);
    for (int i = 0; i < 6; ++i)
        line->AddPointIndex(i, i == 2 || i == 5);
    lineNode->SetNodeAttribute(line);

    const char* others[] = {"null", "marker", "lod", "switcher", "optical", "patch", "nurbs"};
    for (int i = 0; i < 7; ++i) {
        QdxNode* n = QdxNode::Create(scene, others[i]);
        lineNode->AddChild(n);
        QdxNodeAttribute* a = nullptr;
        switch (i) {
        case 0:
            a = QdxNull::Create(scene, "nullAttr");
            break;
        case 1:
            a = QdxMarker::Create(scene, "markerAttr");
            break;
        case 2:
            a = QdxLODGroup::Create(scene, "lodAttr");
            break;
        case 3:
            a = QdxCameraSwitcher::Create(scene, "switchAttr");
            break;
        case 4:
            a = QdxOpticalReference::Create(scene, "opticalAttr");
            break;
        case 5: {
            QdxPatch* p = QdxPatch::Create(scene, "patchAttr");
            p->InitControlPoints(4, QdxPatch::eBezier, 4, QdxPatch::eBezier);
            a = p;
            break;
        }
        default:
            a = QdxNurbs::Create(scene, "nurbsAttr");
            break;
        }
        n->SetNodeAttribute(a);
    }
    // An instance: a second node sharing the mesh.
    QdxNode* instance = QdxNode::Create(scene, "instance");
    root->AddChild(instance);
    instance->SetNodeAttribute(mesh);

    // Arrays of every kind, with awkward numbers.
    QdxObject* holder = QdxNull::Create(scene, "arrays");
    auto& d = holder->AddArray("doubles", detail::ArrayKind::Double).Elements<double>();
    d = {0.0,
         -0.0,
         1e-310,
         std::numeric_limits<double>::quiet_NaN(),
         std::numeric_limits<double>::infinity(),
         123456789012345678.0,
         0.1};
    holder->AddArray("longs", detail::ArrayKind::Int64).Elements<int64_t>() = {INT64_MIN, -1,
                                                                               INT64_MAX};
    holder->AddArray("bytes", detail::ArrayKind::UInt8).Elements<uint8_t>() = {0, 255, 7};
    auto& big = holder->AddArray("ints", detail::ArrayKind::Int32).Elements<int32_t>();
    for (int i = 0; i < 10000; ++i)
        big.push_back(i * 7919 % 1000);
    AddAnimation(scene, meshNode);
}

namespace {
std::string Bits(const detail::Value& v) {
    // Exact representation: the binary writer's encoding would do, but a
    // visitor keeps this independent of the formats.
    std::ostringstream s;
    s << v.index() << ":";
    auto raw = [&](const void* p, size_t n) {
        const auto* c = static_cast<const unsigned char*>(p);
        for (size_t i = 0; i < n; ++i)
            s << std::hex << int(c[i]) << ".";
    };
    switch (v.index()) {
    case 1:
        s << std::get<bool>(v);
        break;
    case 2:
        s << std::get<int>(v);
        break;
    case 3:
        raw(&std::get<float>(v), 4);
        break;
    case 4:
        raw(&std::get<double>(v), 8);
        break;
    case 5:
        raw(std::get<QdxDouble2>(v).Buffer(), 16);
        break;
    case 6:
        raw(std::get<QdxDouble3>(v).Buffer(), 24);
        break;
    case 7:
        raw(std::get<QdxDouble4>(v).Buffer(), 32);
        break;
    case 8:
        raw(std::get<QdxAMatrix>(v).m, 128);
        break;
    case 9:
        s << std::get<std::string>(v);
        break;
    case 10:
        for (const auto& x : std::get<std::vector<std::string>>(v))
            s << x << "|";
        break;
    case 11:
        s << std::get<QdxDateTime>(v).toString();
        break;
    case 12:
        s << std::get<long long>(v);
        break;
    }
    return s.str();
}

int IndexIn(QdxScene* scene, const QdxObject* o) {
    if (o == scene) return 0;
    for (int i = 0; i < scene->GetMemberCount(); ++i)
        if (scene->GetMember(i) == o) return i + 1;
    return -1;
}
} // namespace

std::string CompareScenes(QdxScene* a, QdxScene* b) {
    if (a->GetMemberCount() != b->GetMemberCount())
        return "member counts differ: " + std::to_string(a->GetMemberCount()) + " vs " +
               std::to_string(b->GetMemberCount());
    for (int i = 0; i <= a->GetMemberCount(); ++i) {
        QdxObject* x = i == 0 ? a : a->GetMember(i - 1);
        QdxObject* y = i == 0 ? b : b->GetMember(i - 1);
        std::string where = "object " + std::to_string(i) + " '" + x->GetName() + "': ";
        if (std::string(x->GetClassId().GetName()) != y->GetClassId().GetName())
            return where + "classes differ";
        if (std::string(x->GetName()) != y->GetName()) return where + "names differ";
        if (x->GetPropertyCount() != y->GetPropertyCount()) return where + "property counts differ";
        for (int p = 0; p < x->GetPropertyCount(); ++p) {
            const auto& px = x->Properties()[static_cast<size_t>(p)];
            const auto& py = y->Properties()[static_cast<size_t>(p)];
            std::string pw = where + "property '" + px.name + "': ";
            if (px.name != py.name || px.label != py.label || !px.type.Is(py.type) ||
                px.flags != py.flags || px.enumItems != py.enumItems)
                return pw + "header differs";
            if (Bits(px.value) != Bits(py.value)) return pw + "value differs";
            if (px.srcObjects.size() != py.srcObjects.size()) return pw + "connections differ";
            for (size_t s = 0; s < px.srcObjects.size(); ++s)
                if (IndexIn(a, px.srcObjects[s]) != IndexIn(b, py.srcObjects[s]))
                    return pw + "connection differs";
        }
        if (x->Arrays().size() != y->Arrays().size()) return where + "array counts differ";
        for (size_t k = 0; k < x->Arrays().size(); ++k) {
            const auto& ax = x->Arrays()[k];
            const auto& ay = y->Arrays()[k];
            size_t bytes = ax.Count() * detail::ArrayElementSize(ax.kind);
            if (ax.name != ay.name || ax.kind != ay.kind || ax.Count() != ay.Count() ||
                (bytes && std::memcmp(ax.Data(), ay.Data(), bytes) != 0))
                return where + "array '" + ax.name + "' differs";
        }
        if (i > 0) {
            if (x->GetSrcObjectCount() != y->GetSrcObjectCount())
                return where + "source counts differ";
            for (int s = 0; s < x->GetSrcObjectCount(); ++s)
                if (IndexIn(a, x->GetSrcObject(s)) != IndexIn(b, y->GetSrcObject(s)))
                    return where + "source " + std::to_string(s) + " differs";
        }
    }
    return "";
}

bool ExportScene(QdxScene* scene, const std::string& path, int format, int version,
                 std::string* error) {
    QdxExporter* e = QdxExporter::Create(scene->GetQdxManager(), "");
    std::string v = "QDX" + std::to_string(version) + "00";
    bool ok = e->Initialize(path.c_str(), format) && e->SetFileExportVersion(v.c_str()) &&
              e->Export(scene);
    if (!ok && error) *error = e->GetStatus().GetErrorString();
    e->Destroy();
    return ok;
}

bool ImportScene(QdxScene* scene, const std::string& path, std::string* error) {
    QdxImporter* im = QdxImporter::Create(scene->GetQdxManager(), "");
    bool ok = im->Initialize(path.c_str(), -1) && im->Import(scene);
    if (!ok && error) *error = im->GetStatus().GetErrorString();
    im->Destroy();
    return ok;
}

std::string MakeTempDir(const std::string& tag) {
    namespace fs = std::filesystem;
    fs::path p = fs::temp_directory_path() / ("qdxsdk-" + tag + "-" + std::to_string(::getpid()) +
                                              "-" + std::to_string(std::rand()));
    fs::remove_all(p);
    fs::create_directories(p);
    return p.string();
}

std::string ReadAll(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

void WriteAll(const std::string& path, const std::string& bytes) {
    // A new file rather than a truncated one: file systems flush truncated
    // files on close, which makes loops of rewrites crawl.
    std::remove(path.c_str());
    std::ofstream f(path, std::ios::binary);
    f.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

} // namespace qdxtest
